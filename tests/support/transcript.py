# The notation of the transcripts and of the board's check: bytes written as
# tokens ("cli>set" BS*3 ESC "[1F" 0x03), keys by name (Up, Tab, Ctrl-X),
# and the helpers that compare what a host wrote with what was expected.

import re

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


def report(test, *arguments):
    # Runs a test that returns its failures, and tells ctest.
    failures = test(*arguments)
    for failure in failures:
        print("FAILED at", failure)
    print(f"{len(failures)} failed" if failures else "ok")
    return 1 if failures else 0
