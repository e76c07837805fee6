//@ start on_start_counter
// Counts the frames received on 0x100 in the system variable "sample.frames", which other
// applets and the host can read.
var.add_system_var_int32("sample.frames", "frames received on 0x100");
var.set_system_var_int32("sample.frames", 0);

//@ rx counted 0x100
s32 frames = 0;
var.get_system_var_int32("sample.frames", &frames);
var.set_system_var_int32("sample.frames", frames + 1);

//@ stop on_stop_counter
s32 frames = 0;
if (var.get_system_var_int32("sample.frames", &frames) == 0) {
    clog.info("%d frames received on 0x100", frames);
}
