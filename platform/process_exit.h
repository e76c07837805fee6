#pragma once
// Whether the process is ending while a static object is destroyed.

namespace platform {

// True once the process has begun to end in a way that stops its other threads first (Windows
// ends them before it unloads the DLLs). A static object's destructor must then neither join a
// worker nor touch the worker's locks and condition variables: the worker is gone, maybe while
// holding them. False on POSIX, where threads run on through exit().
bool processExiting();

}  // namespace platform
