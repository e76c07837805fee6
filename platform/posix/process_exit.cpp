#include "platform/process_exit.h"

namespace platform {

bool processExiting() { return false; }

}  // namespace platform
