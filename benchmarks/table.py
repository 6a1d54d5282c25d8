# SPDX-License-Identifier: LGPL-2.1-or-later
"""The table of costs: what each row means, what it should reach, and what was measured. Called by tools/bench."""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

COUNTS = os.path.join(os.path.dirname(__file__), "instructions.json")
TOLERANCE = 1.20  # a guarded row may cost this times the figure that is kept

# A row's figure is the median over the pairs, and a function of the pair's two sides.
RATIO = (lambda limit, library: library / limit, "{:.2f} x", False)
SPEED = (lambda limit, library: limit / library, "{:.2f} x", True)  # of the time of the same bytes
EXTRA = (lambda limit, library: library - limit, "{:+.1f} ns", False)

NS = ((1, "ns"), (1e3, "us"), (1e6, "ms"), (1e9, "s"))
BYTES = ((1, "B"), (1024, "KiB"), (1024 * 1024, "MiB"))
MIBS = ((1, "MiB/s"),)

# name: (work, limit, kind, unit, goal, why the goal is not a better one)
ROWS = {
    "list": ("reading a list of 163,840 bytes to records, log off", "QJsonDocument::fromJson", RATIO, NS, 0.7, ""),
    "limited-line": ("a rate-limited line whose level is off", "isInfoEnabled()", EXTRA, NS, 8, ""),
    "line": ("a plain line whose level is off", "isDebugEnabled()", EXTRA, NS, 3, ""),
    "request": ("from a request to its result", "two queued calls and the JSON", RATIO, NS, 1.1, ""),
    "search": ("getDeviceInfo among 1,000, the last", "linear search and one copy", RATIO, NS, 1.1,
               "1.0 x is wished: the host's record is filled and not replaced, so one more has to be made"),
    "interface": ("creating and destroying the interface, processor time", "two QThreads", RATIO, NS, 1.5,
                  "1.2 x is wished: its two dozen connections, which decide on which thread each call runs, are made anew"),
    "message": ("a message from the channel to the component", "the signal to a bare handler", EXTRA, NS, 15, ""),
    "write-64": ("component to channel, 64 B, speed", "write_async", SPEED, NS, 0.95, ""),
    "write-4k": ("component to channel, 4 KiB, speed", "write_async", SPEED, NS, 0.95, ""),
    "write-64k": ("component to channel, 64 KiB, speed", "write_async", SPEED, NS, 0.85,
                  "0.95 x is wished: the channel writes all that it has before it reads, so it is given two at a time"),
    "write-1m": ("component to channel, 1 MiB, speed", "write_async", SPEED, NS, 0.9,
                 "0.95 x is wished: a message is only lent for the call, so it is copied before it is written"),
    "echo": ("a round trip of 64 bytes", "write_async and port-data", RATIO, NS, 1.2,
             "1.1 x is wished: only the main loop may touch the channel, so a message waits for its next turn"),
    "memory": ("memory of 1,000 devices in both lists", "their texts, once", RATIO, BYTES, 1.3, ""),
    "backlog": ("memory while 200 MiB wait for the peer", "the bytes", RATIO, BYTES, 1.05, ""),
    "mount-watch": ("waiting for mount changes, processor time", "the bare poll loop", RATIO, NS, 1.05, ""),
    "chain": ("a virtual machine reads through the chain", "the component on the channel", RATIO, MIBS, 0.97, ""),
}
MORE_IS_BETTER = {"chain"}  # its pairs are speeds


class Wrong(Exception):
    """The tool was called in a way that cannot work."""


def wanted(names, pattern):
    try:
        found = [name for name in names if re.search(pattern, name) or re.search(pattern, ROWS[name][0])]
    except re.error as error:
        raise Wrong(f"{pattern} is no regular expression: {error}") from error
    return found


def measure(parts, names):
    """The pairs of each row, each row in a process of its own: {name: [[limit, library], ...]}"""
    pairs = {}
    for name in names:
        if sys.stderr.isatty():
            print(f"\r\033[K{name} ...", end="", file=sys.stderr)
        with tempfile.NamedTemporaryFile(suffix=".json") as out:
            subprocess.run([parts, f"--benchmark_filter=^{name}/", f"--benchmark_out={out.name}"],
                           check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            runs = json.load(out)["benchmarks"]
        pairs[name] = [[run["limit"], run["library"]] for run in runs if run["run_type"] == "iteration"]
    if sys.stderr.isatty():
        print("\r\033[K", end="", file=sys.stderr)
    return pairs


def amount(value, units):
    size, unit = [(size, unit) for size, unit in units if value >= size or size == 1][-1]
    return f"{value / size:.3g} {unit}" if value / size < 1000 else f"{value / size:.0f} {unit}"


class Row:
    def __init__(self, name, pairs):
        self.work, self.bare, (figure, self.form, more), self.units, self.goal, self.reason = ROWS[name]
        self.limit = statistics.median(limit for limit, _ in pairs)
        self.library = statistics.median(library for _, library in pairs)
        figures = [figure(limit, library) for limit, library in pairs]
        self.figure, self.least, self.most = statistics.median(figures), min(figures), max(figures)
        more = more or name in MORE_IS_BETTER
        shown = round(self.figure, 2) # as it is printed
        self.met = shown >= self.goal if more else shown <= self.goal

    def cells(self, earlier):
        say = self.form.format
        cells = [self.work, amount(self.library, self.units), f"{amount(self.limit, self.units)}, {self.bare}",
                 f"{say(self.figure)} ({say(self.least)} to {say(self.most)})", say(self.goal),
                 "yes" if self.met else "NO"]
        return cells + ([say(earlier.figure) if earlier else "-"] if earlier is not False else [])


def show(pairs, compared):
    head = ["work", "library", "limit", "ratio (least to most)", "goal", "met"] + (["earlier"] if compared else [])
    rows = {name: Row(name, of_row) for name, of_row in pairs.items()}
    earlier = {name: Row(name, of_row) for name, of_row in (compared or {}).items()}
    lines = [head, ["---"] * len(head)]
    lines += [row.cells(earlier.get(name) if compared else False) for name, row in rows.items()]
    widths = [max(len(line[column]) for line in lines) for column in range(len(head))]
    for line in lines:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |")
    print()
    for row in rows.values():
        if row.reason:
            print(f"{row.work}: {row.reason}")
    met = sum(row.met for row in rows.values())
    print(f"{met} of {len(rows)} rows met")
    return 0 if met == len(rows) else 1


def read_pairs(path):
    try:
        with open(path, encoding="utf-8") as file:
            return {name: pairs for name, pairs in json.load(file).items() if name in ROWS and pairs}
    except (OSError, ValueError, AttributeError) as error:
        raise Wrong(f"{path} is no file of --json: {error}") from error


def check_writable(path):
    try:
        open(path, "a", encoding="utf-8").close()
    except OSError as error:
        raise Wrong(f"cannot write: {error}") from error


def table(options):
    names = wanted([name for name in ROWS if name != "chain"], options.filter)
    if not names and not options.chain:
        raise Wrong(f"no row matches {options.filter}")
    earlier = read_pairs(options.compare) if options.compare else None  # wrong files are told before the run
    if options.json:
        check_writable(options.json)
    pairs = measure(options.parts, names)
    if options.chain:
        pairs["chain"] = [[float(field) for field in line.split()] for line in open(options.chain, encoding="utf-8")]
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump(pairs, file, indent=1)
    return show(pairs, earlier)


# --- instructions ---

UNCOUNTED = {"memory", "backlog", "mount-watch", "chain"}  # no time, or no end


def count(parts, name):
    """Instructions of a call, of the library's side and of the limit's."""
    environment = dict(os.environ, QT_HASH_SEED="0", SIMDJSON_FORCE_IMPLEMENTATION="haswell", LC_ALL="C")
    with tempfile.TemporaryDirectory() as directory:
        run = subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={directory}/out",
                              "--combine-dumps=no", parts, "--count", name],
                             check=True, capture_output=True, text=True, env=environment)
        calls = int(run.stdout.split()[-1])
        counts = {}
        for dump in os.listdir(directory):
            with open(os.path.join(directory, dump), encoding="utf-8") as file:
                text = file.read()
            side = re.search(r"^desc: Trigger: Client Request: (\w+)$", text, re.MULTILINE)
            if side:
                counts[side[1]] = int(re.search(r"^totals: (\d+)", text, re.MULTILINE)[1]) / calls
        return round(counts["library"]), round(counts["limit"])


def count_all(options):
    names = wanted([name for name in ROWS if name not in UNCOUNTED], options.filter)
    if not names:
        raise Wrong(f"no counted row matches {options.filter}")
    counts = {}
    for name in names:
        counts[name], limit = count(options.parts, name)
        print(f"{name}: {counts[name]:,} instructions a call, the limit {limit:,}", flush=True)
    return counts


def guard(options):
    with open(COUNTS, encoding="utf-8") as file:
        kept = json.load(file)
    costly = 0
    for name, counted in count_all(options).items():
        if counted > kept.get(name, 0) * TOLERANCE:
            print(f"{name}: too many, {kept.get(name, 0):,} are kept; --accept if that has to be", file=sys.stderr)
            costly += 1
    print(f"rows that cost too much: {costly}")
    return 1 if costly else 0


def accept(options):
    kept = {}
    if os.path.exists(COUNTS):
        with open(COUNTS, encoding="utf-8") as file:
            kept = json.load(file)
    kept.update(count_all(options))
    with open(COUNTS, "w", encoding="utf-8") as file:
        json.dump({name: kept[name] for name in ROWS if name in kept}, file, indent=1)
        file.write("\n")
    return 0


# --- growth ---

# name: (what there is more of, what takes the time)
GROWTHS = {
    "devices": ("devices in a list", "to read the list"),
    "bytes": ("bytes of a message", "to write the message"),
    "channels": ("bound channels", "to write a message on each"),
    "threads": ("threads that log", "to write a line from each"),
}
PLOT = os.path.join(os.path.dirname(__file__), "../docs/growth.svg")
PANEL = """
set xlabel "{size}"
set ylabel "microseconds {work}"
proportional(x) = {last_time} * x / {last_size}
plot "$points_{name}" using 1:($2/1000) with linespoints pointtype 7 linewidth 2 notitle, \
    proportional(x)/1000 with lines dashtype 2 title "in proportion"
"""


def plot(options):
    script = ['set terminal svg size 1000,800 background "white"', f'set output "{PLOT}"', "set logscale xy",
              'set format "10^{%L}"', "set key left top", "set grid"]
    panels = ["set multiplot layout 2,2"]
    for name, (size, work) in GROWTHS.items():
        run = subprocess.run([options.parts, "--grow", name], check=True, capture_output=True, text=True)
        print(f"{name}:\n{run.stdout}", end="", flush=True)
        last_size, last_time = run.stdout.split()[-2:]
        script += [f"$points_{name} << END", run.stdout + "END"]
        panels.append(PANEL.format(name=name, size=size, work=work, last_size=last_size, last_time=last_time))
    subprocess.run(["gnuplot"], input="\n".join(script + panels) + "\n", check=True, capture_output=True, text=True)
    print(f"drawn in {os.path.relpath(PLOT)}")
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("command", choices=["table", "guard", "accept", "plot"])
    parser.add_argument("parts")
    parser.add_argument("--filter", default="")
    parser.add_argument("--json")
    parser.add_argument("--compare")
    parser.add_argument("--chain", help="a file with the pairs of the chain")
    options = parser.parse_args()
    try:
        return {"table": table, "guard": guard, "accept": accept, "plot": plot}[options.command](options)
    except Wrong as wrong:
        print(f"bench: {wrong}", file=sys.stderr)
        return 2
    except subprocess.CalledProcessError as failed:
        print(f"{failed.stderr}bench: {failed}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
