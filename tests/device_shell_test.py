# The device shell (examples/device_shell.cc) on a pseudo-terminal in the
# kernel's default modes, as a user's terminal has them: stopped and continued
# by a job-control shell, and ended by signals and by an exception, each time
# leaving the terminal's modes as it found them.
#
#   device_shell_test.py jobs|endings
#
# ZELCLI_TEST_SHELL is the device shell's command line (behind an emulator for
# another machine's build); ZELCLI_TEST_MEMORY_LIMIT=ON adds the exception,
# brought about by a limit on the shell's memory.

import os
import platform
import resource
import signal
import sys
import termios

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__))), "scripts"))
from driver import WAITING_CALLS, Session  # noqa: E402

SHELL = os.environ["ZELCLI_TEST_SHELL"].split()
PROMPT = b"board> "


def kernel_modes():
    # The modes of a new pseudo-terminal, which the shell starts with.
    master, slave = os.openpty()
    modes = termios.tcgetattr(slave)
    os.close(master)
    os.close(slave)
    return modes


KERNEL_MODES = kernel_modes()


def jobs(failures):
    # bash with job control runs the shell as a job of its own. When the job
    # stops, the script reports whether the shell put the terminal's modes
    # back, leaves the terminal canonical and echoing, as an interactive bash
    # does while it reads a command line, and brings the job back with fg.
    script = ('start=$(stty -g); set -m; "$@"; '
              '[ "$(stty -g)" = "$start" ] && echo "modes put back"; '
              'stty icanon echo; echo fg; fg >/dev/null')
    session = Session(["bash", "-c", script, "bash"] + SHELL, harness=False)
    session.type(b"set baudrate 9600")
    # Ctrl+Z reaches no read: the shell has only to wait for a key again.
    switches = session.field("status", "voluntary_ctxt_switches")
    read = session.field("io", "rchar")
    os.write(session.master, b"\x1a")
    session.wait_until("stop", lambda: b"fg\r\n" in session.output)
    stopped = session.wait_for_key(switches, read)
    if b"modes put back" not in stopped:
        failures.append(f"stopped, the shell left other modes: {stopped}")
    # The line is still "set baudrate 9600", edited without echo from the
    # terminal, a key at a time.
    for keys, expected in ((b"\x7f" * 4, b"\b \b" * 4), (b"1200", b"1200"),
                           (b"\r", b"\r\n" + PROMPT),
                           (b"get baudrate\r",
                            b"get baudrate\r\n1200\r\n" + PROMPT)):
        written = session.type(keys)
        if written != expected:
            failures.append(f"after fg, {keys} wrote {written}, not {expected}")
    session.type(b"exit\r")
    status = session.close()
    if status != 0:
        failures.append(f"bash, whose job the shell was, ended with {status}")


def exhaust_memory(session):
    # Lets the shell's data grow by 192 KiB at most, then types one long line
    # until the line cannot grow.
    with open(f"/proc/{session.pid}/status") as status:
        data = next(int(line.split()[1]) for line in status
                    if line.startswith("VmData:"))
    limit = (data + 192) * 1024
    resource.prlimit(session.pid, resource.RLIMIT_DATA, (limit, limit))
    for _ in range(2048):
        written = session.type(b"x" * 1024)
        if session.exit_status() is not None:
            return written
    return b""


def endings(failures):
    ways = [("Ctrl+\\", lambda s: os.write(s.master, b"\x1c") and b"",
             -signal.SIGQUIT, b""),
            ("SIGPIPE", lambda s: os.kill(s.pid, signal.SIGPIPE) or b"",
             -signal.SIGPIPE, b"")]
    if os.environ.get("ZELCLI_TEST_MEMORY_LIMIT") == "ON":
        ways.append(("an exception", exhaust_memory, 1,
                     b"device_shell: std::bad_alloc\r\n"))
    for ending, end, expected_status, expected_message in ways:
        session = Session(SHELL, harness=False)
        written = end(session)
        session.wait_until("end", lambda: session.exit_status() is not None)
        session.collect()
        written += session.output
        modes = termios.tcgetattr(session.slave)
        status = session.close()
        if status != expected_status or not written.endswith(expected_message):
            failures.append(f"after {ending}: status {status}, not "
                            f"{expected_status}; last written {written[-60:]}")
        differing = [name for name, value, kernel in zip(
            ("iflag", "oflag", "cflag", "lflag", "ispeed", "ospeed", "cc"),
            modes, KERNEL_MODES) if value != kernel]
        if differing:
            failures.append(f"after {ending}: the terminal's {differing} are "
                            "not as the shell found them")


def main(which):
    if WAITING_CALLS is None:
        print(f"skipped: driver.py does not know the waiting calls' numbers "
              f"on {platform.machine()}")
        return 77  # a skip, to ctest
    # The shell starts as a login shell would start it: with SIGPIPE's
    # default action, which Python ignores, and no core file from Ctrl+\.
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    failures = []
    {"jobs": jobs, "endings": endings}[which](failures)
    for failure in failures:
        print("FAILED:", failure)
    print(f"{len(failures)} failed" if failures else "ok")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
