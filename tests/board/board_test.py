# The device shell on the serial console of an emulated 32-bit ARM board
# (board.py), started by BusyBox init as users start it.
#
#   board_test.py SHELL LIBRARY TESTS STATIC_SHELL HANGUP DEB_CACHE WORK
#
# The board's programs, all built for 32-bit ARM: the device shell, the
# shared library it loads, the in-process tests, the device shell linked
# statically, and hangup.cc.
#
# Keys are typed one at a time, each once the bytes of the one before have
# come back, as a quick typist would. The bytes expected are those the same
# keys get from the shared device shell driven on a pseudo-terminal here,
# under user-mode emulation (ZELCLI_TEST_SHELL is its command line), with the
# serial line's ONLCR applied (each LF goes out as CR LF).

import os
import re
import signal
import sys
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(
    __file__))))
sys.path[:0] = [f"{SOURCE}/tests/support", f"{SOURCE}/scripts"]
from board import INITTAB, Board, Silent, make_image  # noqa: E402
from driver import Session  # noqa: E402
from transcript import (  # noqa: E402
    check, check_bytes, notation, token_bytes, words)

SESSION = ('"help" Enter "set mode fast" Left Left Left Backspace "F" Home End '
           'Enter "get mode" Enter Up Up Down Enter "s" Tab Down PgDn Up Enter '
           'Enter "led?" Enter "exit" Enter')
PROMPT_KEYS = '"x" Enter ' * 10
ARROW_KEYS = '"ab" Left Right Enter ' * 20
ARROW_GAP = 0.0004  # seconds between the bytes of an arrow key, as a UART


def keys(script):
    # The keys of a script in transcript notation, text a key per character.
    return [key for token in words(script) for key in (
        [bytes([c]) for c in token[1:-1].encode()]
        if token.startswith('"') else [token_bytes(token, {})])]


def reference(script):
    # What the device shell on a pseudo-terminal here writes at the start and
    # for each key, as the serial line sends it.
    session = Session(os.environ["ZELCLI_TEST_SHELL"].split())
    written = [session.startup_output] + [session.type(k) for k in keys(script)]
    if session.exit_status() is None:
        session.type(b"exit\r")
    session.close()
    return [output.replace(b"\n", b"\r\n") for output in written]


class Check:
    def __init__(self, board, greeting):
        self.board, self.greeting, self.failures = board, greeting, []

    def play(self, what, script, expected, gap=0.0):
        # Types the keys and compares, line by line (up to a key whose bytes
        # end with the prompt), the bytes that come back. Returns how many
        # lines differ and how many bytes came that were not expected.
        prompt = self.greeting[-len(b"board> "):]
        lines_differing = extra = 0
        line, wanted = [], b""
        for key, output in zip(keys(script), expected):
            for i, byte in enumerate(key):
                time.sleep(gap if i else 0)
                self.board.type(bytes([byte]))
            got = b"".join(bytes_ for _, bytes_ in line)
            wanted += output
            end = prompt if wanted.endswith(prompt) else b""
            line.append((notation(key), self.board.read_until(
                lambda new: len(got + new) >= len(wanted) and
                (got + new).endswith(end),
                f"answer {notation(key)} in {what} with {notation(output)}")))
            if end:
                failures = len(self.failures)
                keys_typed = " ".join(k for k, _ in line)
                check_bytes(self.failures, f"{what}: {keys_typed}", wanted, line)
                lines_differing += len(self.failures) - failures
                extra += max(0, len(got) + len(line[-1][1]) - len(wanted))
                line, wanted = [], b""
        return lines_differing, extra

    def greets(self, what):
        # The shell that init starts next greets on the line, and nothing else
        # but the line break that getty writes first.
        startup = self.board.read_until(
            lambda new: new.endswith(self.greeting), f"greet {what}")
        check(self.failures, f"{what}: the greeting", notation(self.greeting),
              notation(startup.lstrip(b"\r\n")))

    def serial_entry(self, line=None):
        # Puts the inittab entry for the serial line in place of the one
        # before, once the shell that one started has gone.
        base = INITTAB.replace("\n", "\\n")
        self.board.run(f"printf '{base}' >/etc/inittab; kill -HUP 1; "
                       "while pidof device_shell; do usleep 10000; done")
        if line:
            self.board.run(f"echo '{line}' >>/etc/inittab; kill -HUP 1")

    def entry(self, line, help_bytes):
        # The shell started by an inittab entry must show the greeting alone,
        # list exactly the device shell's commands, and end on Ctrl+C and on a
        # hang-up, to be started again by init.
        self.serial_entry(line)
        self.greets(line)
        self.play(line, '"help" Enter', help_bytes)
        self.board.type(b"\x03")
        self.greets(f"{line}, after Ctrl+C")
        self.board.run("hangup /dev/ttyAMA0")
        self.greets(f"{line}, after a hang-up")

    def endings(self):
        # Started by hand, the shell refuses options and standard input that
        # is not a terminal, and on the line, leaves it in the modes it found
        # on each way out.
        refusals = [self.board.run(f"device_shell {how} 2>&1")
                    for how in ("</dev/null", "-x")]
        check(self.failures, "refusals", [
            ("device_shell: standard input is not a terminal\n", 1),
            ("device_shell: unknown option -x\n", 2)], refusals)
        self.serial_entry()
        before = self.board.run("stty -F /dev/ttyAMA0 -g")
        for ending, how in (("exit", b"exit\r"), ("Ctrl+C", b"\x03"),
                            ("SIGTERM", "kill $shell"),
                            ("a hang-up", "hangup /dev/ttyAMA0")):
            self.board.run("setsid -c device_shell <>/dev/ttyAMA0 >&0 2>&0 &"
                           " shell=$!")
            self.board.read_until(lambda new: new.endswith(self.greeting),
                                  "start from the control console")
            if isinstance(how, bytes):
                self.board.type(how)
            else:
                self.board.run(how)
            check(self.failures,
                  f"after {ending}: exit status and the line's modes",
                  [("", 0), before], [self.board.run("wait $shell"),
                                      self.board.run("stty -F /dev/ttyAMA0 -g")])


def main(shell, library, tests, static_shell, hangup, cache, work):
    started = time.monotonic()
    image = make_image(cache, work, {
        "/usr/bin/device_shell": shell,
        "/usr/bin/device_shell.static": static_shell,
        "/usr/lib/libzelcli.so.0": library,
        "/usr/bin/hangup": hangup,
        "/usr/lib/zelcli/ptest/zelcli_tests": tests,
        "/usr/lib/zelcli/ptest/run-ptest":
            f"{SOURCE}/meta-zelcli/recipes-support/zelcli/zelcli/run-ptest"},
        "ttyAMA0::respawn:/usr/bin/device_shell\n")
    session = reference(SESSION)
    board = Board(*image)
    checks = Check(board, session[0])
    try:
        checks.greets("boot")
        print(f"boot to prompt: {time.monotonic() - board.started:.1f} s")
        # The shell that init starts after exit is the static one, which the
        # rest of the check uses.
        board.run("ln -sf device_shell.static /usr/bin/device_shell")
        for build in ("shared", "static"):
            checks.play(f"session ({build})", SESSION,
                       session[1:-1] + [session[-1] + session[0]])
        doubled, _ = checks.play("keys at the prompt", PROMPT_KEYS,
                                reference(PROMPT_KEYS)[1:])
        print(f"keys typed at the prompt: {doubled} of 10 echoed twice")
        _, stray = checks.play("arrow keys whose bytes come apart", ARROW_KEYS,
                              reference(ARROW_KEYS)[1:], ARROW_GAP)
        print(f"arrow keys with their bytes 400 us apart: {stray} stray bytes "
              "in 40")
        checks.endings()
        help_bytes = reference('"help" Enter')[1:]
        guide = open(f"{SOURCE}/docs/guide.md").read()
        # Every inittab entry the guide gives, in its examples and its text.
        for line in re.findall(r"^\w*::respawn:.*$|(?<=`)\S*::respawn:[^`]*",
                               guide, re.M):
            checks.entry(line, help_bytes)
        ptest = board.run("/usr/lib/zelcli/ptest/run-ptest")[0].splitlines()
        check(checks.failures, "run-ptest: lines that are not PASS:", [],
                     [line for line in ptest if not line.startswith("PASS: ")])
        print(f"run-ptest on the board: {len(ptest)} lines")
    except Silent as silent:
        checks.failures.append(f"{silent}; it wrote {notation(silent.received)}")
    finally:
        board.close()
    print(f"board check: {time.monotonic() - started:.0f} s")
    for failure in checks.failures:
        print("FAILED:", failure)
    print(f"{len(checks.failures)} failed" if checks.failures else "ok")
    return 1 if checks.failures else 0


if __name__ == "__main__":
    # Ended from outside, it still ends qemu on the way out.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("terminated"))
    sys.exit(main(*sys.argv[1:]))
