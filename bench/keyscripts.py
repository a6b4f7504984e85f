"""The benchmark's key scripts, generated from a fixed seed.

A script is a list of keys, each the bytes one key press sends. Every script
ends with the line "exit", so that the baseline (that line alone) can be
subtracted from it.
"""

import random

LEFT = "\x1b[D"
RIGHT = "\x1b[C"
UP = "\x1b[A"
HOME = "\x1b[H"
END = "\x1b[F"
BACKSPACE = "\x7f"
ENTER = "\r"

SEED = 2026

# The command words of the realistic session; the hosts register them.
WORDS = ["ifconfig", "route", "ping", "mount", "sensor", "gpio", "i2cget",
         "logread", "fwinfo", "netstat", "dmesg", "modem", "note"]
ARGUMENTS = ["eth0", "wlan0", "up", "down", "192.168.1.17", "10.0.0.1", "-c",
             "4", "/dev/mmcblk0p1", "/mnt/data", "temp0", "--verbose", "0x48",
             "0x1f", "out", "high", "low", "-n", "50", "netmask", "add",
             "default", "gw", "status", "rssi", "--json", "ro", "rw"]


def typed(text):
    return list(text)


def exit_line():
    return typed("exit") + [ENTER]


def baseline():
    return exit_line()


def command_line(rng):
    """A command line of 20 to 40 characters."""
    length = rng.randint(20, 40)
    line = rng.choice(WORDS)
    while len(line) < length:
        line += " " + rng.choice(ARGUMENTS)
    return line[:length].rstrip()


def edited(rng, line):
    """The keys that type `line` the way a person might."""
    style = rng.random()
    if style < 0.3:
        # A typo, taken back with Backspace.
        cut = rng.randint(len(line) // 2, len(line) - 1)
        return typed(line[:cut]) + [rng.choice("xqz"), BACKSPACE] + typed(line[cut:])
    if style < 0.55:
        # A word left out, then put in: Left to the gap, type, End.
        start = rng.randint(len(line) // 3, len(line) - 5)
        gap = line[start:start + rng.randint(2, 4)]
        rest = line[start + len(gap):]
        return (typed(line[:start] + rest) + [LEFT] * len(rest) + typed(gap) +
                [END])
    if style < 0.65:
        # A look at the start of the line, then on at the end.
        return typed(line) + [HOME, END]
    return typed(line)


def realistic(lines=60):
    rng = random.Random(SEED)
    keys = []
    for number in range(lines):
        if number >= 5 and rng.random() < 0.1:
            keys += [UP] * rng.randint(1, 3) + [ENTER]  # run a line again
        else:
            keys += edited(rng, command_line(rng)) + [ENTER]
    return keys + exit_line()


def paste(length=4000):
    rng = random.Random(SEED + 1)
    text = "note " + "".join(rng.choice("abcdefghijklmnopqrstuvwxyz ")
                             for _ in range(length - 5))
    return typed(text) + [ENTER] + exit_line()


def mid_line(length=400):
    """`length` characters, the cursor moved back to the middle, and
    `length` more typed there."""
    rng = random.Random(SEED + 2)
    letters = "abcdefghijklmnopqrstuvwxyz"

    def text(n):
        return "".join(rng.choice(letters) for _ in range(n))

    return (typed("note " + text(length - 5)) + [LEFT] * (length // 2) +
            typed(text(length)) + [ENTER] + exit_line())


def scenarios(smoke=False):
    """Name -> keys. The smoke scale types a few hundred keys in all."""
    if smoke:
        return {"realistic": realistic(4), "paste": paste(120),
                "mid-line": mid_line(40)}
    return {"realistic": realistic(), "paste": paste(), "mid-line": mid_line()}
