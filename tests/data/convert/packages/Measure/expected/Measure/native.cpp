sys_Log("native.cpp: vci script is not support");
