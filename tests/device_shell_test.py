# The device shell (examples/device_shell.cc) on a pseudo-terminal in the
# kernel's default modes, as a user's terminal has them, run as a job of bash
# with job control: stopped and continued, and ended by signals and by an
# exception, each time leaving the terminal's modes as it found them.
#
#   device_shell_test.py after_fg|modes_put_back
#
# ZELCLI_TEST_SHELL is the device shell's command line (behind an emulator for
# another machine's build); ZELCLI_TEST_MEMORY_LIMIT=ON adds the exception,
# brought about by a limit on the shell's memory.

import os
import resource
import signal
import sys

from driver import Session, leaf
from transcript import report

SHELL = os.environ["ZELCLI_TEST_SHELL"].split()
PROMPT = b"board> "
# Each time the job stops or ends, bash says whether the terminal's modes are
# those it started the job with, and the job's status. A job stopped by
# SIGTSTP (status 148) or SIGSTOP (147) gets the terminal back canonical and
# echoing, as an interactive bash leaves it while it reads a command line,
# and is brought back with fg.
JOB = '''start=$(stty -g); set -m; "$@"; status=$?
while :; do
  [ "$(stty -g)" = "$start" ] && echo "modes put back"
  echo "status $status"
  case $status in 147|148) ;; *) break ;; esac
  stty icanon echo; fg >/dev/null; status=$?
done'''


def start(*options):
    return Session(["bash", *options, "-c", JOB, "bash", *SHELL],
                   harness=False)


def until(session, wanted, send):
    # Sends a signal, or a key that the terminal turns into one, and returns
    # what is written until bash has said `wanted` and the shell waits again,
    # or bash has ended.
    switches = session.field("status", "voluntary_ctxt_switches")
    read = session.field("io", "rchar")
    send()
    session.wait_until(f"say {wanted}", lambda: wanted in session.output)
    return session.wait_for_key(switches, read)


def key(session, byte):
    return lambda: os.write(session.master, byte)


def after_fg():
    failures = []
    # Interactive, bash puts its own modes back when the job stops, and
    # continues the job with them, as a user's bash does.
    session = start("--norc", "-i")
    session.type(b"set baudrate 9600")
    until(session, b"status 148\r\n", key(session, b"\x1a"))
    # After fg the line is still "set baudrate 9600", and each key acts on
    # it, with no echo from the terminal; so too after a stop that the shell
    # cannot see coming.
    def stop():
        until(session, b"status 147\r\n",
              lambda: os.kill(leaf(session.pid), signal.SIGSTOP))
        return b""
    for keys, expected in ((b"\x7f" * 4, b"\b \b" * 4), (b"1200", b"1200"),
                           (stop, b""), (b"\r", b"\r\n" + PROMPT),
                           (b"get baudrate\r",
                            b"get baudrate\r\n1200\r\n" + PROMPT),
                           (b"exit\r",
                            b"exit\r\nmodes put back\r\nstatus 0\r\n")):
        written = keys() if callable(keys) else session.type(keys)
        if written != expected:
            failures.append(f"after fg, {keys} wrote {written}, "
                            f"not {expected}")
    session.close()
    return failures


def exhaust_memory(session):
    # Lets the shell's data grow by 192 KiB at most, then types one long line
    # until the line cannot grow and the shell ends.
    shell = leaf(session.pid)
    with open(f"/proc/{shell}/status") as status:
        data = next(int(line.split()[1]) for line in status
                    if line.startswith("VmData:"))
    limit = (data + 192) * 1024
    resource.prlimit(shell, resource.RLIMIT_DATA, (limit, limit))
    for _ in range(2048):
        written = session.type(b"x" * 1024)
        if b"status" in written:
            return written
    return b""


def modes_put_back():
    def ctrl_z(session):
        stopped = until(session, b"status 148\r\n", key(session, b"\x1a"))
        session.type(b"exit\r")
        return stopped

    def sigpipe(session):
        return until(session, b"status",
                     lambda: os.kill(leaf(session.pid), signal.SIGPIPE))
    ways = [("Ctrl+Z", ctrl_z, b"modes put back\r\nstatus 148\r\n"),
            ("Ctrl+\\", lambda s: until(s, b"status", key(s, b"\x1c")),
             b"modes put back\r\nstatus 131\r\n"),
            ("SIGPIPE", sigpipe, b"modes put back\r\nstatus 141\r\n")]
    if os.environ.get("ZELCLI_TEST_MEMORY_LIMIT") == "ON":
        ways.append(("an exception", exhaust_memory,
                     b"device_shell: std::bad_alloc\r\n"
                     b"modes put back\r\nstatus 1\r\n"))
    failures = []
    # Not interactive, bash leaves the modes as the job left them when it
    # stops or ends.
    for ending, end, expected in ways:
        session = start()
        written = end(session)
        session.close()
        if not written.endswith(expected):
            failures.append(f"{ending}: the end of {written[-80:]}, not "
                            f"{expected}")
    return failures


if __name__ == "__main__":
    # The shell starts as a login shell starts it: with SIGPIPE's default
    # action, which Python ignores, and with no core file from Ctrl+\.
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    tests = {"after_fg": after_fg, "modes_put_back": modes_put_back}
    sys.exit(report(tests[sys.argv[1]]))
