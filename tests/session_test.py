# The session tests: the test host (host.cc) driven on a pseudo-terminal.
#
#   session_test.py FILE NAME   plays one scenario of a transcript
#
# ZELCLI_TEST_HOST is the host's command line (behind an emulator for another
# machine's build); ZELCLI_TEST_VALGRIND, when set, a command to run it under.
#
# A transcript (tests/transcripts/) is plain text. "## Name" starts a scenario;
# other lines that start with '#' are comments. In a scenario:
#
#   host: OPTIONS            the host's options; a fresh host each scenario
#   let NAME = BYTES         NAME now stands for BYTES, in this file
#   KEYS => BYTES | FIELDS   one row: type KEYS, expect BYTES written back,
#                            then the state FIELDS (only those given)
#
# BYTES is a list of tokens, run together: "quoted text"; NUL BS TAB LF CR ESC
# SP DEL; RED (ESC[31m) and RESET (ESC[0m); ESC[1F or any ESC[...; 0xNN; a name
# from let; any of these followed by *N for N of them; "-" alone for nothing,
# "..." alone for bytes not checked.
# KEYS are such tokens, each typed in one write, or key names (Up, Down,
# Left, Right, Home, End, PgUp, PgDn, Insert, Delete, CtrlLeft, CtrlRight, Tab,
# Enter, Backspace, Ctrl-X); and
#   start    no key: what the host wrote before it first waited for a key
#   log      no key: what the host logged since the last row
#   @X       request X to the host (host.cc), nothing typed
# Other FIELDS are those of the host's state line: line=[...] cursor=N
# browsing=0|1 index=N saved=[...] history=[NEWEST|...] screen=none|N.

import os
import platform
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__))), "scripts"))
from driver import WAITING_CALLS, Session  # noqa: E402

BYTES = {"NUL": b"\0", "BS": b"\b", "TAB": b"\t", "LF": b"\n", "CR": b"\r",
         "ESC": b"\x1b", "SP": b" ", "DEL": b"\x7f", "RED": b"\x1b[31m",
         "RESET": b"\x1b[0m", "Up": b"\x1b[A", "Down": b"\x1b[B",
         "Right": b"\x1b[C", "Left": b"\x1b[D", "Home": b"\x1b[H",
         "End": b"\x1b[F", "PgUp": b"\x1b[5~", "PgDn": b"\x1b[6~",
         "Insert": b"\x1b[2~", "Delete": b"\x1b[3~",
         "CtrlLeft": b"\x1b[1;5D", "CtrlRight": b"\x1b[1;5C", "Tab": b"\t",
         "Enter": b"\r", "Backspace": b"\x7f"}


NAMES = {value[0]: name for name, value in BYTES.items()
         if name.isupper() and len(value) == 1}


def notation(data):
    # Bytes as the transcripts write them: "cli>set" BS*3 SP*3 ESC "[1F" 0x03.
    def token(run):
        if run[1] is None:
            return f'"{run[0].decode()}"'
        name = NAMES.get(run[0][0], f"0x{run[0][0]:02X}")
        return name + (f"*{len(run[0])}" if len(run[0]) > 1 else "")
    runs = re.finditer(rb'[!#-~](?:[ !#-~]*[!#-~])?|(.)\1*', data, re.S)
    return " ".join(map(token, runs)) or "-"


def words(text):
    return re.findall(r'"[^"]*"(?:\*\d+)?|\S+', text)


def token_bytes(token, names):
    if repeat := re.fullmatch(r"(.*)\*(\d+)", token):
        return token_bytes(repeat[1], names) * int(repeat[2])
    if token.startswith('"'):
        return token[1:-1].encode("latin-1")
    if token.startswith("ESC["):
        return b"\x1b" + token[3:].encode()
    if token.startswith("0x"):
        return bytes([int(token, 16)])
    if token.startswith("Ctrl-"):
        return bytes([ord(token[5]) - 64])
    return names.get(token) or BYTES[token]


def fields(text):
    return dict(re.findall(r"(\w+)=(\[[^\]]*\]|\S+)", text))


def load(path):
    # The scenarios of a transcript, by name.
    scenarios, names = {}, {}
    for number, text in enumerate(open(path), 1):
        parts = words(text)
        if text.startswith("## "):
            current = scenarios[text[3:].strip()] = {"options": [], "rows": []}
        elif not parts or parts[0].startswith("#"):
            continue
        elif parts[0] == "let":
            names[parts[1]] = b"".join(token_bytes(t, names) for t in parts[3:])
        elif parts[0] == "host:":
            current["options"] = [token_bytes(w, names).decode("latin-1")
                                  if w.startswith('"') or w in names else w
                                  for w in parts[1:]]
        else:
            arrow = parts.index("=>")
            bar = parts.index("|") if "|" in parts else len(parts)
            expected = ... if parts[arrow + 1:bar] == ["..."] else b"".join(
                token_bytes(t, names) for t in parts[arrow + 1:bar] if t != "-")
            state = text.split(" | ", 1)[1] if bar < len(parts) else ""
            current["rows"].append((number, parts[:arrow], expected, fields(state)))
    return scenarios


def check(failures, what, expected, actual):
    if expected != actual:
        failures.append(f"{what}\n  expected: {expected}\n  actual:   {actual}")


def check_bytes(failures, where, expected, outputs):
    # `outputs` holds each key with the bytes it got; a failure names the
    # first key whose bytes part from `expected`.
    written = b"".join(output for _, output in outputs)
    if expected is ... or expected == written:
        return
    key, done = "-", b""
    for key, output in outputs:
        done += output
        if not expected.startswith(done):
            break
    check(failures, f"{where}, at {key}", notation(expected), notation(written))


def transcript(file, name):
    transcripts = os.path.join(os.path.dirname(os.path.abspath(__file__)),
                               "transcripts")
    scenario = load(os.path.join(transcripts, file))[name]
    session = Session(os.environ.get("ZELCLI_TEST_VALGRIND", "").split() +
                      os.environ["ZELCLI_TEST_HOST"].split() + scenario["options"])
    failures = []
    for number, keys, expected, wanted in scenario["rows"]:
        where = f"{file}:{number}: {' '.join(keys)}"
        outputs, state = [], None
        for key in keys:
            if key == "start":
                outputs.append((key, session.startup_output))
            elif key == "log":
                outputs.append((key, session.take_log()))
            elif key.startswith("@"):
                state = session.ask(key[1:].encode())
            else:
                outputs.append((key, session.type(token_bytes(key, {}))))
        check_bytes(failures, where, expected, outputs)
        actual = fields(state or session.ask(b"?")) if wanted else {}
        for field, value in wanted.items():
            check(failures, f"{where} ({field})", value, actual.get(field))
    status = session.close()
    if status != 0:
        failures.append(f"the host ended with {status}:\n" +
                        session.log.decode("latin-1"))
    return failures


def report(test, *arguments):
    # Runs a test that returns its failures, and tells ctest.
    if WAITING_CALLS is None:
        print(f"skipped: driver.py does not know the waiting calls' numbers "
              f"on {platform.machine()}")
        return 77  # a skip, to ctest
    failures = test(*arguments)
    for failure in failures:
        print("FAILED at", failure)
    print(f"{len(failures)} failed" if failures else "ok")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(report(transcript, *sys.argv[1:]))
