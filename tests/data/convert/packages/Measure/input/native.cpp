// disabled for vci
int native_only();
