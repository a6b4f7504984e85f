# An emulated 32-bit ARM board: Debian's armmp kernel under qemu-system-arm
# (-M virt), BusyBox as init, and an initramfs of Debian's armhf C and C++
# runtimes and the programs given. Its serial line, ttyAMA0, is the kernel's
# console; a second console, hvc0, runs a shell for control. Both are sockets
# here, or the serial line is this terminal:
#
#   board.py DEB_CACHE WORK_DIR DEVICE_SHELL   (make demo-board)
#
# boots with the device shell (an ARM build linked statically) on the serial
# line, started by init from /etc/inittab. Ctrl+A X ends the board.
#
# Everything comes from Debian's packages, fetched with apt-get download into
# DEB_CACHE and unpacked with dpkg-deb -x; the initramfs is a newc cpio
# written here, so nothing needs root.

import ctypes
import glob
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time

# The armhf packages of the board, from the Debian release's list.
PACKAGES = subprocess.run(
    ["bash", "-c", '. "$0" && echo "$BOARD_DEBS"',
     os.path.join(os.path.dirname(os.path.abspath(__file__)), "debian.conf")],
    check=True, capture_output=True, text=True).stdout.split()
MODULES = ["virtio_mmio", "virtio_console"]  # the control console's driver
PR_SET_PDEATHSIG = 1

RCS = """#!/bin/busybox sh
/bin/busybox --install -s
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir /dev/pts
mount -t devpts devpts /dev/pts
""" + "".join(f"insmod /lib/modules/{module}.ko\n" for module in MODULES)

# The control shell runs each line it reads and follows its output with the
# exit status between @@, without echo or prompt. It starts with @@0@@: what
# is sent before the console is open is lost.
CONTROL = """#!/bin/sh
stty -echo
echo @@0@@
while read -r line; do eval "$line"; echo "@@$?@@"; done
"""

INITTAB = "::sysinit:/etc/rcS\nhvc0::respawn:/etc/control\n"


def deb(cache, package):
    # The package's .deb in the cache, downloaded first if missing. The kernel
    # comes in the versioned package that the meta-package depends on.
    if package == "linux-image-armmp":
        if found := glob.glob(f"{cache}/linux-image-*-armmp_*_armhf.deb"):
            return found[0]
        depends = subprocess.run(
            ["apt-cache", "depends", "linux-image-armmp:armhf"], check=True,
            capture_output=True, text=True).stdout
        package = re.search(r"Depends: (linux-image-\S+-armmp)", depends)[1]
    if not glob.glob(f"{cache}/{package}_*_armhf.deb"):
        subprocess.run(["apt-get", "download", "-q", f"{package}:armhf"],
                       cwd=cache, check=True, stdout=subprocess.DEVNULL)
    return glob.glob(f"{cache}/{package}_*_armhf.deb")[0]


def cpio_entry(name, mode, data=b"", device=(0, 0)):
    fields = [0, mode, 0, 0, 1, 0, len(data), 0, 0, *device, len(name) + 1, 0]
    entry = b"070701" + b"".join(b"%08X" % field for field in fields)
    entry += name.encode() + b"\0"
    entry += b"\0" * (-len(entry) % 4) + data
    return entry + b"\0" * (-len(entry) % 4)


def write_cpio(root, path):
    # The tree at root, owned by root, and the console device that the kernel
    # opens for init before there is any other.
    with open(path, "wb") as out:
        out.write(cpio_entry("dev", 0o40755))
        out.write(cpio_entry("dev/console", 0o20600, device=(5, 1)))
        for directory, dirs, files in os.walk(root):
            for name in sorted(dirs) + sorted(files):
                path = os.path.join(directory, name)
                if os.path.islink(path):
                    data = os.readlink(path).encode()
                elif os.path.isdir(path):
                    data = b""
                else:
                    data = open(path, "rb").read()
                out.write(cpio_entry(os.path.relpath(path, root),
                                     os.lstat(path).st_mode, data))
        out.write(cpio_entry("TRAILER!!!", 0))


def make_image(cache, work, programs, inittab):
    # programs: a path on the board for each file here; inittab: entries to
    # add to the control console's. Returns the kernel and the initramfs.
    root, kernel = os.path.join(work, "root"), os.path.join(work, "kernel")
    for tree in (root, kernel):
        shutil.rmtree(tree, ignore_errors=True)
    os.makedirs(cache, exist_ok=True)
    os.makedirs(work, exist_ok=True)
    for package in PACKAGES:
        subprocess.run(["dpkg-deb", "-x", deb(cache, package),
                        kernel if package.startswith("linux") else root],
                       check=True)
    for unused in ("usr/share", "usr/lib/arm-linux-gnueabihf/gconv"):
        shutil.rmtree(os.path.join(root, unused))
    for directory in ("lib/modules", "proc", "sys", "sbin", "usr/sbin", "tmp"):
        os.makedirs(os.path.join(root, directory), exist_ok=True)
    for module in MODULES:
        shutil.copy(glob.glob(f"{kernel}/lib/modules/*/kernel/**/{module}.ko",
                              recursive=True)[0], f"{root}/lib/modules/")
    os.symlink("bin/busybox", f"{root}/init")
    for name, text in (("rcS", RCS), ("control", CONTROL),
                       ("inittab", INITTAB + inittab)):
        with open(f"{root}/etc/{name}", "w") as out:
            out.write(text)
        os.chmod(f"{root}/etc/{name}", 0o755)
    for path, program in programs.items():
        os.makedirs(os.path.dirname(root + path), exist_ok=True)
        shutil.copy(program, root + path)
    write_cpio(root, f"{work}/initramfs.cpio")
    return glob.glob(f"{kernel}/boot/vmlinuz-*")[0], f"{work}/initramfs.cpio"


class Silent(AssertionError):
    def __init__(self, what, received):
        super().__init__(f"the board did not {what}")
        self.received = received


class Board:
    PATIENCE = 30  # seconds for any one answer, on a loaded machine

    def __init__(self, kernel, initramfs, terminal=False):
        serial, self.serial = socket.socketpair()
        control, self.control = socket.socketpair()
        line = ["mon:stdio"] if terminal else [
            "chardev:serial", "-chardev",
            f"socket,id=serial,fd={serial.fileno()}"]
        self.started = time.monotonic()
        self.qemu = subprocess.Popen(
            ["qemu-system-arm", "-M", "virt", "-m", "256", "-nodefaults",
             "-display", "none", "-no-reboot", "-kernel", kernel,
             "-initrd", initramfs, "-append", "console=ttyAMA0 loglevel=0",
             "-serial", *line, "-device", "virtio-serial-device,max_ports=1",
             "-chardev", f"socket,id=control,fd={control.fileno()}",
             "-device", "virtconsole,chardev=control"],
            pass_fds=[serial.fileno(), control.fileno()],
            # qemu ends with this process, however that ends.
            preexec_fn=lambda: ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG,
                                                       signal.SIGKILL))
        serial.close()
        control.close()
        self.received = self.control_output = b""
        self.run(None)

    def close(self):
        self.qemu.kill()
        self.qemu.wait()
        self.serial.close()
        self.control.close()

    def type(self, data):
        self.serial.sendall(data)

    def read_until(self, done, what):
        # Reads the serial line until done(the bytes read) holds, and returns
        # them.
        self.serial.settimeout(self.PATIENCE)
        while not done(self.received):
            try:
                chunk = self.serial.recv(65536)
            except socket.timeout:
                chunk = b""
            if not chunk:
                received, self.received = self.received, b""
                raise Silent(what, received)
            self.received += chunk
        received, self.received = self.received, b""
        return received

    def run(self, command):
        # Runs a shell command line on the control console (or, with None,
        # waits for the console) and returns its output and exit status.
        if command:
            self.control.sendall(command.encode() + b"\n")
        self.control.settimeout(self.PATIENCE)
        while not (end := re.search(rb"@@(\d+)@@\r\n", self.control_output)):
            try:
                chunk = self.control.recv(65536)
            except socket.timeout:
                chunk = b""
            if not chunk:
                raise Silent(f"answer {command}", self.control_output)
            self.control_output += chunk
        output = self.control_output[:end.start()].replace(b"\r\n", b"\n")
        self.control_output = self.control_output[end.end():]
        return output.decode("latin-1"), int(end[1])


if __name__ == "__main__":
    cache, work, shell = sys.argv[1:]
    image = make_image(cache, work, {"/usr/bin/device_shell": shell},
                       "ttyAMA0::respawn:/usr/bin/device_shell\n")
    print("Booting the board; Ctrl+A X ends it.", flush=True)
    board = Board(*image, terminal=True)
    board.qemu.wait()
