#!/usr/bin/python3
"""Makes a Markdown table of what the benchmarks measured.

    table.py RESULTS [DOCUMENT]

RESULTS is a folder with one file a program, NAME.json, as Google Benchmark writes it. The table is
printed; with a document it goes in there instead, between the two marker lines.

A row's name is workload/contender. The contender "vornex" is the library, one that begins with
"limit" is what nobody can be faster than, all others are peers. A program may say what a workload
is in its context, under the workload's name. Medians are taken where a row was repeated.

Processor time is shown; of rows that measure real time that, and of those that measure both, both.
Rows with the counters "stack", "heap" (bytes) or "KiB" give a row each for those. Rows with the
counter "length" give, over all workloads that differ in what stands behind their last "_" only, the
exponent k of time = c * length^k.
"""

import collections
import glob
import json
import math
import os
import re
import sys

OURS = "vornex"
BEGIN, END = "<!-- ./run bench writes from here", "<!-- to here -->"
UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
OPTIONS = re.compile(r"/(iterations:\d+|repeats:\d+|min_time:[\d.]+|process_time|real_time)(?=/|$)")
CLOCKS = {"real_time": "wall time", "process_time": "processor time"}
MEMORY = {"stack": ("stack", "bytes"), "heap": ("heap", "bytes"), "KiB": ("peak memory", "KiB")}


class Table:
    def __init__(self):
        self.rows = collections.OrderedDict()  # (program, workload) -> {contender: (value, unit)}

    def add(self, program, results):
        legend = results["context"]
        growing = collections.OrderedDict()
        for run in sorted(results["benchmarks"], key=lambda run: run["family_index"]):
            if run.get("error_occurred") or run.get("aggregate_name", "median") != "median":
                continue
            name, contender = OPTIONS.sub("", run["run_name"]).rsplit("/", 1)
            workload = legend.get(name, name)
            clocks = [clock for clock in CLOCKS if "/" + clock in run["run_name"]]
            for clock in clocks or ["process_time"]:
                time = run["real_time" if clock == "real_time" else "cpu_time"]
                self.put(program, workload + (f", {CLOCKS[clock]}" if clocks else ""), contender,
                         time * UNITS[run["time_unit"]], "ns")
            for counter, (what, unit) in MEMORY.items():
                if counter in run:
                    self.put(program, f"{workload}, {what}", contender, run[counter], unit)
            if "length" in run:
                family = growing.setdefault(name.rsplit("_", 1)[0], {})
                family.setdefault(contender, []).append((run["length"], run["cpu_time"]))
        for name, family in growing.items():
            for contender, points in family.items():
                if len(points) > 2:
                    self.put(program, f"{legend.get(name, name)}, growth of time", contender,
                             exponent(points), "exponent")

    def put(self, program, workload, contender, value, unit):
        self.rows.setdefault((program, workload), {})[contender] = (value, unit)

    def markdown(self):
        yield "| workload | ours | peers, ours to theirs | limit, ours to it | command |"
        yield "|---|---|---|---|---|"
        for (program, workload), row in self.rows.items():
            if OURS not in row:
                continue
            own = row.pop(OURS)
            limits = [name for name in row if name.startswith("limit")]
            cells = [workload.replace("|", "\\|"), text(own),
                     compared(own, row, [name for name in row if name not in limits]),
                     compared(own, row, limits), f"`./run bench {program}`"]
            yield "| " + " | ".join(cells) + " |"


def compared(own, row, names):
    cells = []
    for name in names:
        cell = f"{re.sub('^limit(: )?', '', name)} {text(row[name])}".strip().replace("|", "\\|")
        if own[1] != "exponent" and row[name][0] != 0:
            cell += f": {ratio(own[0] / row[name][0])}"
        cells.append(cell)
    return "; ".join(cells)


def exponent(points):
    """Fitted to all points by least squares."""
    xs, ys = zip(*[(math.log(length), math.log(time)) for length, time in points])
    count = len(points)
    return ((count * sum(x * y for x, y in zip(xs, ys)) - sum(xs) * sum(ys)) /
            (count * sum(x * x for x in xs) - sum(xs) ** 2))


def text(measured):
    value, unit = measured
    if unit == "exponent":
        return f"length^{value:.2f}"
    if unit != "ns":
        return f"{value:,.0f} {unit}"
    for name in ("ns", "µs", "ms"):
        if value < 999.5:
            return f"{value:.3g} {name}"
        value /= 1000
    return f"{value:.3g} s"


def ratio(value):
    if 0 < value < 0.095:  # two digits
        return f"{value:.{1 - math.floor(math.log10(value))}f}"
    return f"{value:.2f}" if value < 100 else f"{value:,.0f}"


def machine(folder, context):
    """What the figures are of."""
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        model = re.search(r"^model name\s*: *(.*)", info.read(), re.M)
    (settings,) = glob.glob(os.path.join(folder, "../CMakeFiles/*/CMakeCXXCompiler.cmake"))
    with open(settings, encoding="utf-8") as lines:
        compiler = dict(re.findall(r'set\(CMAKE_CXX_COMPILER_(ID|VERSION) "(.*)"\)', lines.read()))
    return (f"Measured {context['date'][:10]} on {model.group(1) if model else 'x86'}, "
            f"{context['num_cpus']} processors, load {context['load_avg'][0]:.1f} at the start; "
            f"Linux {os.uname().release}; {compiler['ID']} {compiler['VERSION']}, release build.")


def main(folder, document=None):
    table, contexts = Table(), []
    for path in sorted(glob.glob(os.path.join(folder, "*.json"))):
        with open(path, encoding="utf-8") as lines:
            results = json.load(lines)
        contexts.append(results["context"])
        table.add(os.path.basename(path)[:-len(".json")], results)
    lines = list(table.markdown())
    if document is None:
        print("\n".join(lines))
        return
    contexts.sort(key=lambda context: context["date"])
    with open(document, encoding="utf-8") as old:
        before, rest = old.read().split(BEGIN)
    marker, rest = rest.split("\n", 1)
    after = rest.split(END, 1)[1]
    with open(document, "w", encoding="utf-8") as new:
        new.write("\n".join([before + BEGIN + marker, machine(folder, contexts[0]), "", *lines, "",
                             END + after]))


main(*sys.argv[1:])
