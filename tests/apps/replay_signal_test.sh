#!/bin/sh
# "ruvo run" on a long log, stopped by SIGINT and by SIGTERM: the frames the applet sends are
# readable while the replay still runs (written through line by line, to --out and to stdout),
# the signal ends the replay between frames with the stop handlers run, the output ends in
# whole lines that python-can reads, and the exit status is 130 / 143.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" slow >/dev/null &&
"$ruvo" func "$p" slow mainRun --create 0 >/dev/null &&
"$ruvo" func "$p" slow global_define --create 2 >/dev/null &&
"$ruvo" bind "$p" slow rx req 0x7E0 >/dev/null &&
"$ruvo" bind "$p" slow rx all 0xFFFFFFFF >/dev/null &&
"$ruvo" func "$p" slow on_stop_m --create 51 >/dev/null || fail "set-up"
printf 'static int g_rx = 0;\n' > "$work/g.txt"
cat > "$work/req.txt" <<'BODY'
KelnCan reply;
com.init_can(0x7E8, 8, &reply);
reply.canNo = ACAN->canNo;
reply.FData[0] = ACAN->FData[0];
com.send_can_async(&reply);
BODY
# Every frame costs the applet a little, so the replay lasts seconds and is cut short.
printf '++g_rx;\nfor (volatile int i = 0; i < 40000; ++i) {}\n' > "$work/all.txt"
cat > "$work/stop.txt" <<'BODY'
clog.info("stop handler ran after rx=%d", g_rx);
KelnCan bye;
com.init_can(0x7EF, 1, &bye);
bye.canNo = 1;
bye.FData[0] = 0xEE;
com.send_can_async(&bye);
BODY
for f in global_define:g on_can_rx_req:req on_can_rx_all:all on_stop_m:stop; do
  "$ruvo" func "$p" slow "${f%%:*}" --body "$work/${f#*:}.txt" >/dev/null || fail "body ${f%%:*}"
done
"$ruvo" compile "$p" slow > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"

# A request first, then many frames, then a request that an interrupted replay never reaches.
awk 'BEGIN {
  n = 200000
  printf "(1700000000.000000) can1 7E0#01\n"
  for (i = 1; i <= n; ++i) printf "(%d.%06d) can1 123#%02X\n", 1700000000 + int(i / 1000000), i % 1000000, i % 256
  printf "(1700000001.000000) can1 7E0#02\n"
}' > "$work/long.log"

/usr/bin/python3 - "$ruvo" "$p" "$work" <<'PY' || fail "signals"
import os, signal, subprocess, sys, time
import can

ruvo, project, work = sys.argv[1:4]
total = 200002

def check(sig, to_stdout):
    out = os.path.join(work, "out_%d.log" % sig)
    err = os.path.join(work, "err_%d.txt" % sig)
    cmd = [ruvo, "run", project, "slow", "--replay", os.path.join(work, "long.log")]
    with open(err, "w") as e, open(out if to_stdout else os.devnull, "w") as o:
        child = subprocess.Popen(cmd + ([] if to_stdout else ["--out", out]), stdout=o, stderr=e)
    deadline = time.monotonic() + 60
    text = ""
    while not text.endswith("\n"):
        if child.poll() is not None:
            sys.exit("ended before a sent frame could be read: %s" % open(err).read())
        if time.monotonic() > deadline:
            child.kill()
            sys.exit("no sent frame within 60 s")
        time.sleep(0.01)
        if os.path.exists(out):
            text = open(out).read()
    # The reply is readable while the replay still runs: written as it went out.
    assert child.poll() is None, "the replay ended before the first line was read"
    child.send_signal(sig)
    try:
        status = child.wait(timeout=60)
    except subprocess.TimeoutExpired:
        child.kill()
        sys.exit("no exit within 60 s of the signal")
    messages = open(err).read()
    assert status == 128 + sig, (status, messages)
    name = "SIGINT" if sig == signal.SIGINT else "SIGTERM"
    assert "interrupted by %s after " % name in messages, messages
    rx = [line for line in messages.splitlines() if "stop handler ran after rx=" in line]
    assert len(rx) == 1, messages
    assert 0 < int(rx[0].rsplit("=", 1)[1]) < total, rx
    text = open(out).read()
    assert text.endswith("\n"), repr(text[-80:])
    frames = list(can.LogReader(out))
    # Only the first request was answered (the last one lies beyond the interruption), and the
    # stop handler's farewell went out last.
    assert [(hex(f.arbitration_id), f.channel, bytes(f.data[:1])) for f in frames] == [
        ("0x7e8", "can1", b"\x01"), ("0x7ef", "can1", b"\xee")], frames

check(signal.SIGINT, False)
check(signal.SIGTERM, True)
PY
echo "replay signals: all checks passed"
