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
import re
import sys

from driver import Session
from transcript import check, check_bytes, report, token_bytes, words


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


if __name__ == "__main__":
    sys.exit(report(transcript, *sys.argv[1:]))
