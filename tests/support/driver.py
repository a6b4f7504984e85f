# Drives a host program on a pseudo-terminal of 80x24: types keys into it and
# returns exactly the bytes it writes back. The tests (session_test.py,
# device_shell_test.py, board/board_test.py) and the benchmark drive their
# hosts with it.
#
# A key is sent only while the host waits for one, and type() returns once the
# host has read every byte sent, has slept since, and waits in poll(), read()
# or select() again with the terminal raw and nothing unread; then it reads
# everything the host wrote. No exchange depends on timing, even for keys that
# the terminal hands on in pieces, and every wait has a deadline.
#
# For the tests (harness=True), the terminal starts from the kernel's defaults
# less output post-processing, CR-to-LF translation, flow control, signal keys
# and extended input processing, so the bytes on both sides are the programs'
# own; the host's standard error is a pipe of its own, and its descriptor 3 a
# socket for requests and their answers (see host.cc). For the benchmark, the
# terminal keeps the kernel's defaults, as a user's has them, and is the
# host's standard error too. A host may run under a tool that starts it as a
# child (strace -f): its last descendant is the one watched.

import fcntl
import os
import platform
import signal
import socket
import struct
import sys
import termios
import time

# The numbers of the calls in which a host waits for a key, in this machine's
# kernel, which /proc shows for emulated hosts too: poll() and ppoll(), as
# zelcli waits, and read(), select() and pselect6(), as readline and libedit
# do (and their time64 forms on 32-bit machines). Without them no host can be
# driven, so a machine not listed ends whatever imports this module.
ARM_CALLS = {3, 142, 168, 335, 336, 413, 414}
WAITING_CALLS = {"x86_64": {0, 7, 23, 270, 271}, "aarch64": {63, 72, 73},
                 "armv7l": ARM_CALLS, "armv8l": ARM_CALLS,
                 "i686": {3, 142, 168, 308, 309, 413, 414}
                 }.get(platform.machine())
if WAITING_CALLS is None:
    sys.exit(f"driver.py: no host can be driven on {platform.machine()}: add "
             f"{platform.machine()!r} to WAITING_CALLS with the numbers of "
             "read, poll, ppoll, select and pselect6 (and their time64 forms) "
             "in its kernel's system call table")
PATIENCE = 60  # seconds; generous for loaded machines and emulators
COLUMNS, ROWS = 80, 24


def read_available(fd):
    data = b""
    try:
        while chunk := os.read(fd, 65536):
            data += chunk
    except OSError:  # nothing more now, or EIO once the other side is gone
        pass
    return data


def leaf(pid):
    """The last descendant of `pid`: the host itself under strace -f."""
    while True:
        try:
            with open(f"/proc/{pid}/task/{pid}/children") as children:
                found = children.read().split()
        except OSError:
            return pid
        if not found:
            return pid
        pid = int(found[0])


class Session:
    def __init__(self, argv, env=None, harness=True):
        self.master, self.slave = os.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ,
                    struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
        if harness:
            mode = termios.tcgetattr(self.slave)
            mode[0] &= ~(termios.ICRNL | termios.INLCR | termios.IGNCR |
                         termios.IXON | termios.IXOFF)
            mode[1] &= ~termios.OPOST
            mode[3] &= ~(termios.ISIG | termios.IEXTEN)
            termios.tcsetattr(self.slave, termios.TCSANOW, mode)
            self.errors, errors_end = os.pipe()
            self.control, control_end = socket.socketpair()
            descriptors = [(errors_end, 2), (control_end.fileno(), 3)]
        else:
            self.errors, self.control = None, None
            descriptors = [(self.slave, 2)]
        self.pid = os.fork()
        if self.pid == 0:
            os.setsid()
            fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)
            for fd, target in [(self.slave, 0), (self.slave, 1)] + descriptors:
                os.dup2(fd, target)
            os.closerange(len(descriptors) + 2, 1024)
            os.execvpe(argv[0], argv, os.environ if env is None else env)
        if harness:
            os.close(errors_end)
            control_end.close()
            self.answers = self.control.makefile("rb")
            os.set_blocking(self.errors, False)
        os.set_blocking(self.master, False)
        self.status = self.usage = None
        self.output = self.log = b""
        try:
            self.startup_output = self.wait_for_key(-1, 0)
        except AssertionError:
            os.kill(self.pid, signal.SIGKILL)
            raise

    def close(self):
        # Closing the control socket ends a host whose session still runs
        # (see host.cc); a host without one must have ended. Returns its exit
        # status.
        if self.control is not None:
            self.answers.close()
            self.control.close()
        try:
            self.wait_until("exit", lambda: self.exit_status() is not None)
        finally:
            if self.exit_status() is None:
                os.kill(self.pid, signal.SIGKILL)
                os.waitpid(self.pid, 0)
            self.collect()
        for fd in (self.master, self.slave, self.errors):
            if fd is not None:
                os.close(fd)
        return self.status

    def type(self, keys):
        # Sends `keys` in one write and returns what the host wrote until it
        # waits again or exits.
        switches = self.field("status", "voluntary_ctxt_switches")
        wanted = self.field("io", "rchar") + len(keys)
        os.write(self.master, keys)
        return self.wait_for_key(switches, wanted)

    def wait_for_key(self, switches_before, bytes_read):
        # The host must have read every key (its read count includes its
        # requests, a byte each), slept since they were sent, so that a poll()
        # that has not yet seen them does not count, and wait again.
        def waiting():
            unread = struct.unpack("i", fcntl.ioctl(
                self.slave, termios.FIONREAD, b"\0\0\0\0"))[0]
            return self.exit_status() is not None or (
                self.field("io", "rchar") >= bytes_read and
                self.field("status", "voluntary_ctxt_switches") > switches_before
                and unread == 0
                and not termios.tcgetattr(self.slave)[3] & termios.ICANON
                and self.in_waiting_call())
        self.wait_until("wait for a key", waiting)
        output, self.output = self.output, b""
        return output

    def ask(self, request):
        # Sends a request (see host.cc) and returns the state line it is
        # answered with, once the host has done it.
        self.control.sendall(request)
        return self.answers.readline().decode("latin-1").rstrip("\n")

    def take_log(self):
        # Standard error written since the last call.
        self.collect()
        log, self.log = self.log, b""
        return log

    def exit_status(self):
        # None while the host runs, -N once signal N has ended it. Its
        # resource usage is kept in self.usage.
        if self.status is None:
            pid, status, usage = os.wait4(self.pid, os.WNOHANG)
            if pid == self.pid:
                self.status = os.waitstatus_to_exitcode(status)
                self.usage = usage
        return self.status

    def field(self, file, key):
        # A number from the host's /proc/PID/FILE; -1 once it is gone.
        try:
            with open(f"/proc/{leaf(self.pid)}/{file}") as lines:
                return next(int(line.split()[1]) for line in lines
                            if line.startswith(key + ":"))
        except (OSError, StopIteration):
            return -1

    def in_waiting_call(self):
        try:
            with open(f"/proc/{leaf(self.pid)}/syscall") as call:
                return int(call.read().split()[0]) in WAITING_CALLS
        except (OSError, ValueError, IndexError):  # "running", or gone
            return False

    def collect(self):
        self.output += read_available(self.master)
        if self.errors is not None:
            self.log += read_available(self.errors)

    def wait_until(self, what, done):
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            # Read as it comes, so that the host never blocks in write(), and
            # once more when done: the terminal hands on what the host wrote a
            # little later, and a read that finds nothing waits for what is on
            # its way.
            self.collect()
            if done():
                self.collect()
                return
            time.sleep(0.0001)
        raise AssertionError(f"the host did not {what}")
