# Drives a host program on a pseudo-terminal: types keys into it and returns
# exactly the bytes it writes back.
#
# A key is sent only while the host waits for one, and type() returns once the
# host has read every byte sent, has slept since, and waits in poll() again with
# the terminal raw and nothing unread; then it reads everything the host wrote.
# No exchange depends on timing, even for keys that the terminal hands on in
# pieces.
#
# The terminal starts from the kernel's defaults less output post-processing,
# CR-to-LF translation, flow control, signal keys and extended input
# processing, so the bytes on both sides are the programs' own. The host's
# standard error is a pipe of its own, and its descriptor 3 a socket for
# requests and their answers (see host.cc).

import fcntl
import os
import platform
import signal
import socket
import struct
import termios
import time

# The numbers of poll(), ppoll() and, on 32-bit machines, ppoll_time64() in
# this machine's kernel, which /proc shows for emulated hosts too; None on a
# machine not listed, where no host can be driven.
POLL_CALLS = {"x86_64": {7, 271}, "aarch64": {73},
              "armv7l": {168, 336, 414}, "armv8l": {168, 336, 414},
              "i686": {168, 309, 414}}.get(platform.machine())
PATIENCE = 60  # seconds; generous for loaded machines and emulators


def read_available(fd):
    data = b""
    try:
        while chunk := os.read(fd, 65536):
            data += chunk
    except OSError:  # nothing more now, or EIO once the other side is gone
        pass
    return data


class Session:
    def __init__(self, argv):
        self.master, self.slave = os.openpty()
        mode = termios.tcgetattr(self.slave)
        mode[0] &= ~(termios.ICRNL | termios.INLCR | termios.IGNCR |
                     termios.IXON | termios.IXOFF)
        mode[1] &= ~termios.OPOST
        mode[3] &= ~(termios.ISIG | termios.IEXTEN)
        termios.tcsetattr(self.slave, termios.TCSANOW, mode)
        self.errors, errors_end = os.pipe()
        self.control, control_end = socket.socketpair()
        self.pid = os.fork()
        if self.pid == 0:
            os.setsid()
            fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)
            for fd, target in ((self.slave, 0), (self.slave, 1),
                               (errors_end, 2), (control_end.fileno(), 3)):
                os.dup2(fd, target)
            os.closerange(4, 1024)
            os.execv(argv[0], argv)
        os.close(errors_end)
        control_end.close()
        self.answers = self.control.makefile("rb")
        os.set_blocking(self.master, False)
        os.set_blocking(self.errors, False)
        self.status = None
        self.output = self.log = b""
        self.startup_output = self.wait_for_key(-1, 0)

    def close(self):
        # Closing the control socket ends a host whose session still runs
        # (see host.cc); returns its exit status.
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
                and self.in_poll())
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
        # None while the host runs, -N once signal N has ended it.
        if self.status is None:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid == self.pid:
                self.status = os.waitstatus_to_exitcode(status)
        return self.status

    def field(self, file, key):
        # A number from the host's /proc/PID/FILE; -1 once it is gone.
        try:
            with open(f"/proc/{self.pid}/{file}") as lines:
                return next(int(line.split()[1]) for line in lines
                            if line.startswith(key + ":"))
        except (OSError, StopIteration):
            return -1

    def in_poll(self):
        try:
            with open(f"/proc/{self.pid}/syscall") as call:
                return int(call.read().split()[0]) in POLL_CALLS
        except (OSError, ValueError, IndexError):  # "running", or gone
            return False

    def collect(self):
        self.output += read_available(self.master)
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
