#!/usr/bin/python3
"""Types key scripts into the device shell, into readline and libedit hosts
and into the terminal floor (the terminal calls alone) on an 80x24
pseudo-terminal, one key at a time, and reports what each key costs: CPU time
(user + system, from wait4, in rounds that run every host in turn), system
calls (strace -f -c), user-space instructions (callgrind), bytes written,
heap allocations and peak resident memory, per key beyond the baseline of
typing "exit" alone; and the libraries' footprint.

  bench.py BUILD ARM_BUILD [--smoke] [--rounds N] [--out DIR] [--docs FILE]

BUILD holds the x86-64 build with ZELCLI_BUILD_BENCH=ON, ARM_BUILD the ARM
-Os build of the library. --smoke types a few hundred keys, checks the
device shell's system calls against what each byte read must cost, and
fails if any figure is missing; CPU time is reported, never compared.
--rounds sets the number of timed rounds (60, or 2 with --smoke).
"""

import argparse
import datetime
import json
import os
import platform
import random
import re
import statistics
import subprocess
import sys
import tempfile

import keyscripts

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__))), "tests", "support"))
import driver  # noqa: E402

# Rounds of the timed runs (see timed_rounds). A round's ratio of zelcli's
# CPU time to the floor's scatters by 0.15 to 0.3 on a shared 2-core machine;
# with 60 rounds, two runs of the benchmark agree on its median to within 0.1.
ROUNDS = 60


def play(argv, env, keys):
    """Types every key into the host, each once it waits again; returns the
    host's bytes written and its peak resident memory in KiB (VmHWM), both as
    they stand before the last key, and the CPU time (user + system, in
    seconds) of the process started, once it has ended."""
    session = driver.Session(argv, env, harness=False)
    for key in keys[:-1]:
        session.type(key.encode("latin-1"))
    written = session.field("io", "wchar")
    peak = session.field("status", "VmHWM")
    os.write(session.master, keys[-1].encode("latin-1"))
    status = session.close()
    if status != 0:
        raise RuntimeError(f"host ended with status {status}")
    return written, peak, session.usage.ru_utime + session.usage.ru_stime


HOSTS = {
    "zelcli": "examples/device_shell",
    "floor": "bench/terminal_floor",
    "readline": "bench/readline_shell",
    "libedit": "bench/libedit_shell",
}


def host_env(home):
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": home,
           "TERM": "xterm", "LANG": "C", "INPUTRC": "/dev/null",
           "LD_BIND_NOW": "1"}
    return env


def argv_of(build, host):
    return [os.path.join(build, HOSTS[host])] + keyscripts.WORDS


def timed_rounds(build, scripts, base_keys, work, rounds):
    """Times every host typing every script, `rounds` times over. Returns
    the CPU time (user + system, in seconds) of the script's run and of the
    baseline's run of each round, {host: {script: [(script, baseline)]}},
    and the bytes written and peak memory of each host's first run of each
    script and of the baseline, {(host, script): (written, peak_kib)}.

    This machine's noise comes in spells of a second or two, long enough to
    make one host's run cost half as much again as the next one's. A round
    is one script, typed once by every host, each with its baseline, in an
    order that changes from round to round. The hosts' runs of one round
    stand a second or so apart, so a spell weighs on all of them or spoils
    that round alone. The rounds of the scripts take turns."""
    env = host_env(work)
    order = random.Random(keyscripts.SEED)
    cpu = {host: {script: [] for script in scripts} for host in HOSTS}
    first = {}
    for round_number in range(rounds):
        print(f"bench: round {round_number + 1} of {rounds}",
              file=sys.stderr, flush=True)
        for script, keys in scripts.items():
            seconds = {}
            runs = [(host, name) for host in HOSTS
                    for name in (script, "baseline")]
            for host, name in order.sample(runs, len(runs)):
                played = keys if name == script else base_keys
                written, peak, seconds[host, name] = play(
                    argv_of(build, host), env, played)
                first.setdefault((host, name), (written, peak))
            for host in HOSTS:
                cpu[host][script].append(
                    (seconds[host, script], seconds[host, "baseline"]))
    return cpu, first


def profile(build, host, keys, work):
    """The figures that one run under a tool gives and that repeat from run
    to run: heap allocations, system calls, ioctl requests and user-space
    instructions (totals, not per key)."""
    argv = argv_of(build, host)
    env = host_env(work)
    figures = {}

    counted = os.path.join(work, "allocations")
    preload = dict(env, LD_PRELOAD=os.path.join(build, "bench/alloc_count.so"),
                   BENCH_ALLOC_COUNT=counted)
    play(argv, preload, keys)
    with open(counted) as count:
        figures["allocations"] = int(count.read())

    summary = os.path.join(work, "strace")
    play(["strace", "-f", "-c", "-U", "calls,name", "-o", summary] + argv, env,
         keys)
    calls = {}
    with open(summary) as table:
        for line in table:
            match = re.match(r"\s*(\d+)\s+([a-z_0-9]+)\s*$", line)
            if match and match.group(2) != "total":
                calls[match.group(2)] = int(match.group(1))
    figures["calls"] = calls

    trace = os.path.join(work, "ioctl")
    play(["strace", "-f", "-e", "trace=ioctl", "-o", trace] + argv, env, keys)
    requests = {}
    with open(trace) as lines:
        for line in lines:
            # strace names 0x5402 "SNDCTL_TMR_START or TCSETS".
            match = re.search(r"ioctl\(\d+, (?:[A-Z_0-9]+ or )?([A-Z_0-9]+)",
                              line)
            if match:
                requests[match.group(1)] = requests.get(match.group(1), 0) + 1
    figures["ioctl"] = requests

    callgrind_out = os.path.join(work, "callgrind.out")
    play(["valgrind", "--tool=callgrind",
          "--callgrind-out-file=" + callgrind_out] + argv, env, keys)
    with open(callgrind_out) as lines:
        totals = [line for line in lines if line.startswith("totals:")]
    figures["instructions"] = int(totals[0].split()[1])
    return figures


def per_key(figures, base, keys):
    def minus(a, b):
        if isinstance(a, dict):
            return {k: minus(a.get(k, 0), b.get(k, 0)) for k in set(a) | set(b)}
        return (a - b) / keys
    return {k: minus(figures[k], base[k]) for k in figures}


def ratios_by_round(results):
    """zelcli's CPU time per key over each other host's, round by round:
    {scenario: {host: [ratios]}}. Both figures of a ratio come from the same
    round. A round whose figure for the other host is not above zero, as a
    short smoke run can leave it, gives no ratio."""
    ratios = {}
    for scenario, row in results["zelcli"].items():
        ratios[scenario] = {
            host: [mine / theirs for mine, theirs in
                   zip(row["cpu_by_round"],
                       by_scenario[scenario]["cpu_by_round"])
                   if theirs > 0]
            for host, by_scenario in results.items() if host != "zelcli"}
    return ratios


def spread(ratios):
    """"median (lowest to highest)" of a list of ratios."""
    if not ratios:
        return "n/a"
    return (f"{statistics.median(ratios):.2f} "
            f"({min(ratios):.2f} to {max(ratios):.2f})")


def footprint(build, arm_build):
    """Stripped size and text size of each library and what it pulls in."""
    def sizes(path, tool_prefix=""):
        stripped = tempfile.mktemp()
        subprocess.run([tool_prefix + "strip", "-o", stripped, path], check=True)
        size = os.path.getsize(stripped)
        out = subprocess.run([tool_prefix + "size", stripped], check=True,
                             capture_output=True, text=True).stdout
        os.remove(stripped)
        return size, int(out.splitlines()[1].split()[0])

    def needed(path):
        out = subprocess.run(["ldd", path], check=True, capture_output=True,
                             text=True).stdout
        found = []
        for line in out.splitlines():
            match = re.search(r"(\S+) => (\S+)", line)
            if match and not re.match(r"lib(c|m)\.so", match.group(1)):
                found.append((match.group(1), os.path.realpath(match.group(2))))
        return found

    multiarch = "/usr/lib/x86_64-linux-gnu"
    libraries = {"zelcli": os.path.realpath(os.path.join(build, "libzelcli.so")),
                 "readline": os.path.realpath(multiarch + "/libreadline.so"),
                 "libedit": os.path.realpath(multiarch + "/libedit.so")}
    rows = {}
    for name, path in libraries.items():
        stripped, text = sizes(path)
        pulled = needed(path)
        rows[name] = {"stripped": stripped, "text": text,
                      "pulls_in": [lib for lib, _ in pulled],
                      "pulls_in_text": sum(sizes(p)[1] for _, p in pulled)}
    arm = os.path.realpath(os.path.join(arm_build, "libzelcli.so"))
    rows["zelcli"]["arm_stripped"], rows["zelcli"]["arm_text"] = sizes(
        arm, "arm-linux-gnueabihf-")
    return rows


def number(value, digits=1):
    if abs(value) < 0.5 * 10 ** -digits:
        value = 0.0  # no "-0.00" from subtracting the baseline
    return f"{value:,.{digits}f}"


def table(results):
    head = ("| Host | Scenario | Keys | Bytes read/key | CPU µs/key | "
            "System calls/key | ioctl | poll | read | write | other | "
            "Instructions/key | Bytes written/key | Allocations/key | "
            "Peak RSS (KiB) |")
    lines = [head, "|" + "---|" * (head.count("|") - 1)]
    for host, by_scenario in results.items():
        for scenario, row in by_scenario.items():
            calls = row["per_key"]["calls"]
            main = {name: calls.get(name, 0)
                    for name in ("ioctl", "poll", "read", "write")}
            other = sum(calls.values()) - sum(main.values())
            cells = [host, scenario, str(row["keys"]),
                     number(row["bytes_read_per_key"], 2),
                     number(row["per_key"]["cpu"] * 1e6, 1),
                     number(sum(calls.values()), 2)]
            cells += [number(main[name], 2) for name in main]
            cells += [number(other, 2), number(row["per_key"]["instructions"], 0),
                      number(row["per_key"]["written"], 1),
                      number(row["per_key"]["allocations"], 3),
                      f"{row['peak_kib']:,}"]
            lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def footprint_table(rows):
    lines = ["| Library | Stripped, x86-64 Release | Text, x86-64 Release | "
             "Stripped, ARM MinSizeRel | Text, ARM MinSizeRel | "
             "Pulls in (x86-64) | Their text |",
             "|---|---|---|---|---|---|---|"]
    def size(row, key):  # only zelcli has ARM figures
        return f"{row[key]:,}" if key in row else ""
    for name, row in rows.items():
        lines.append(
            f"| {name} | {row['stripped']:,} | {row['text']:,} | "
            f"{size(row, 'arm_stripped')} | {size(row, 'arm_text')} | "
            f"{', '.join(row['pulls_in'])} | {row['pulls_in_text']:,} |")
    return "\n".join(lines)


def ioctl_note(results):
    parts = []
    for scenario, row in results["zelcli"].items():
        requests = row["per_key"]["ioctl"]
        parts.append(f"{scenario}: " + ", ".join(
            f"{name} {requests[name]:.2f}" for name in sorted(requests)
            if abs(requests[name]) > 0.0005))
    return ("zelcli's ioctl calls per key, by request (tcgetattr is one TCGETS; "
            "tcsetattr is one TCSETS, which this C library brackets with two "
            "more TCGETS): " + "; ".join(parts) + ".")


def chart(results, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plot

    scenarios = list(results["zelcli"])
    figure, axes = plot.subplots(figsize=(8, 4.5))
    width = 0.8 / len(results)
    for index, (host, by_scenario) in enumerate(results.items()):
        rounds = [[t * 1e6 for t in by_scenario[s]["cpu_by_round"]]
                  for s in scenarios]
        values = [by_scenario[s]["per_key"]["cpu"] * 1e6 for s in scenarios]
        reach = [[v - min(r) for v, r in zip(values, rounds)],
                 [max(r) - v for v, r in zip(values, rounds)]]
        spots = [x + index * width for x in range(len(scenarios))]
        bars = axes.bar(spots, values, width, yerr=reach, capsize=2, label=host)
        axes.bar_label(bars, labels=[f"{v:.1f}" for v in values], fontsize=7,
                       padding=2, label_type="center")
    axes.set_xticks([x + width * (len(results) - 1) / 2
                     for x in range(len(scenarios))], scenarios)
    axes.set_ylabel("CPU time per key, µs (user + system)")
    axes.set_title("CPU time per key, from wait4, baseline subtracted: "
                   "median of the rounds, whiskers from the lowest to the "
                   "highest", fontsize=9)
    axes.legend()
    figure.tight_layout()
    figure.savefig(path, dpi=100)


def summary(results, rounds):
    """zelcli's CPU time per key against the floor's and the peers'."""
    ratios = ratios_by_round(results)
    realistic = ", ".join(
        f"{host} {by_scenario['realistic']['per_key']['cpu'] * 1e6:.1f} µs"
        for host, by_scenario in results.items())
    to_floor = "; ".join(f"{scenario} {spread(by_host['floor'])}"
                         for scenario, by_host in ratios.items())
    peers = [statistics.median(r) for by_host in ratios.values()
             for host, r in by_host.items() if host != "floor" and r]
    to_peers = (f"{min(peers):.2f} to {max(peers):.2f} times" if peers
                else "n/a")
    per_round = ", ".join(f"{row['keys']:,} {scenario}"
                          for scenario, row in results["zelcli"].items())
    in_all = ", ".join(f"{row['keys'] * rounds:,}"
                       for row in results["zelcli"].values())
    return (f"Each script ran in {rounds} rounds; a round typed it, and the "
            f"baseline, once into every host, in an order of its own: "
            f"{per_round} keys a host a round, {in_all} in all. CPU time per "
            f"key (user + system, from wait4, baseline subtracted), median of "
            f"the rounds, realistic session: {realistic}. zelcli's CPU time per "
            f"key over the terminal floor's, the median of the rounds' ratios "
            f"(lowest to highest): {to_floor}. Over readline's and libedit's, "
            f"the medians come to {to_peers}.")


def ratio_table(results):
    ratios = ratios_by_round(results)
    lines = ["| Scenario | Keys a host a round | zelcli / floor | "
             "zelcli / readline | zelcli / libedit |", "|---|---|---|---|---|"]
    for scenario, by_host in ratios.items():
        cells = [scenario, f"{results['zelcli'][scenario]['keys']:,}"]
        cells += [spread(by_host[host])
                  for host in ("floor", "readline", "libedit")]
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def replace_results(path, text):
    """Puts `text` between the results markers of the file at `path`."""
    with open(path) as old:
        content = old.read()
    begin, end = "<!-- bench results -->", "<!-- end of bench results -->"
    content = re.sub(re.escape(begin) + ".*?" + re.escape(end),
                     lambda _: f"{begin}\n{text}\n{end}", content, flags=re.S)
    with open(path, "w") as new:
        new.write(content)


def smoke_checks(results):
    """The device shell's calls per byte read, which its terminal handling
    fixes: one poll, one read and two TCSETS (tcsetattr), with the TCGETS of
    tcgetattr and whatever this C library adds to tcsetattr; and nothing but
    writes besides."""
    problems = []
    for scenario, row in results["zelcli"].items():
        read_per_key = row["bytes_read_per_key"]
        calls, requests = row["per_key"]["calls"], row["per_key"]["ioctl"]
        expected = {"poll": calls.get("poll", 0), "read": calls.get("read", 0),
                    "TCSETS": requests.get("TCSETS", 0) / 2}
        for name, value in expected.items():
            if abs(value - read_per_key) > 1e-9:
                problems.append(f"{scenario}: {name} {value} per byte read")
        others = {n: v for n, v in calls.items()
                  if n not in ("ioctl", "poll", "read", "write") and abs(v) > 1e-9}
        if others:
            problems.append(f"{scenario}: other system calls {others}")
    return problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("arm_build")
    parser.add_argument("--smoke", action="store_true")
    parser.add_argument("--out", default="bench/results")
    parser.add_argument("--docs")
    parser.add_argument("--rounds", type=int)
    options = parser.parse_args()

    scripts = keyscripts.scenarios(options.smoke)
    base_keys = keyscripts.baseline()
    rounds = options.rounds or (2 if options.smoke else ROUNDS)
    results = {}
    with tempfile.TemporaryDirectory() as work:
        cpu, first = timed_rounds(options.build, scripts, base_keys, work,
                                  rounds)
        for host in HOSTS:
            print(f"bench: {host} under strace and valgrind",
                  file=sys.stderr, flush=True)
            base = profile(options.build, host, base_keys, work)
            base["written"] = first[host, "baseline"][0]
            results[host] = {}
            for scenario, keys in scripts.items():
                figures = profile(options.build, host, keys, work)
                figures["written"], peak = first[host, scenario]
                counted = len(keys) - len(base_keys)
                extra_bytes = sum(len(k) for k in keys) - sum(len(k) for k in base_keys)
                by_round = [(run - base_run) / counted
                            for run, base_run in cpu[host][scenario]]
                results[host][scenario] = {
                    "keys": counted,
                    "bytes_read_per_key": extra_bytes / counted,
                    "per_key": dict(per_key(figures, base, counted),
                                    cpu=statistics.median(by_round)),
                    "cpu_by_round": by_round,
                    "peak_kib": peak,
                }

    rows = footprint(options.build, options.arm_build)
    os.makedirs(options.out, exist_ok=True)
    machine = (f"{platform.machine()}, {os.cpu_count()} cores, "
               f"{cpu_model()}, Linux {platform.release()}")
    measured = (f"Measured {datetime.date.today().isoformat()} on {machine}; "
                f"keys typed one at a time on an {driver.COLUMNS}x{driver.ROWS} "
                "pseudo-terminal, figures per key beyond the baseline "
                "(\"exit\" alone).")
    report = "\n\n".join([measured, summary(results, rounds),
                           ratio_table(results), table(results),
                           ioctl_note(results), footprint_table(rows)])
    print(report)
    with open(os.path.join(options.out, "results.md"), "w") as out:
        out.write(report + "\n")
    with open(os.path.join(options.out, "results.json"), "w") as out:
        json.dump({"results": results, "footprint": rows}, out, indent=1)
    chart(results, os.path.join(options.out, "cpu_per_key.png"))
    if options.docs:
        replace_results(options.docs, report)

    if options.smoke:
        problems = smoke_checks(results)
        for problem in problems:
            print("bench smoke:", problem, file=sys.stderr)
        return 1 if problems else 0
    return 0


def cpu_model():
    with open("/proc/cpuinfo") as info:
        for line in info:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return "unknown CPU"


if __name__ == "__main__":
    sys.exit(main())
