#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

"""Prints the medians of benchmark results, with ratios, as a Markdown table.

A benchmark is named CASE/CONTENDER or CASE/CONTENDER/SIZE. The contender "kez" is compared with the
others of the same case and size. A case that counts items is shown per item.
"""

import argparse
import json
import pathlib
import platform
import re
import statistics
import sys
from collections import defaultdict

# What the benchmark library appends to a name and the table does not need.
SUFFIXES = re.compile(
    r"/(real_time|manual_time|process_time|iterations:\d+|repeats:\d+|threads:\d+)")

# What is in a record of the results besides the counters.
FIELDS = {
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
    "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit",
    "items_per_second", "bytes_per_second", "error_occurred", "error_message", "label",
}

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Measurement:
    """The median of one benchmark: nanoseconds, and counters by name."""

    def __init__(self, records):
        self.isPerItem = "items_per_second" in records[0]
        self.time = statistics.median(time_of(record) for record in records)
        names = [name for name in records[0] if name not in FIELDS]
        self.counters = {
            name: statistics.median(record[name] for record in records) for name in names
        }

    def value(self, counter):
        return self.time if counter is None else self.counters.get(counter)


def time_of(record):
    if "items_per_second" in record:
        return 1e9 / record["items_per_second"]
    isReal = "/real_time" in record["run_name"] or "/manual_time" in record["run_name"]
    return record["real_time" if isReal else "cpu_time"] * NANOSECONDS[record["time_unit"]]


def load(paths):
    """The measurements by name, and the context of the last file."""
    records = defaultdict(list)
    files_of = {}
    context = {}
    for file, path in enumerate(paths):
        results = json.loads(pathlib.Path(path).read_text())
        context.update(results["context"])
        for record in results["benchmarks"]:
            if record["run_type"] != "iteration":
                continue
            if record.get("error_occurred"):
                sys.exit(f"{record['run_name']}: {record['error_message']}")
            name = SUFFIXES.sub("", record["run_name"])
            records[name].append(record)
            files_of[name] = file
    # As they are registered: the repetitions run in random order.
    order = sorted(records, key=lambda name: (files_of[name], position_in_file(records[name][0])))
    return {name: Measurement(records[name]) for name in order}, context


def position_in_file(record):
    return record["family_index"], record["per_family_instance_index"]


def split(name):
    """Case, contender, size; the size may be missing."""
    case, contender, *size = name.split("/")
    return case, contender, "/".join(size)


def shown_time(nanoseconds):
    for unit, factor in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= factor:
            return f"{nanoseconds / factor:.3g} {unit}" if nanoseconds < 1000 * factor else \
                f"{nanoseconds / factor:.0f} {unit}"
    return f"{nanoseconds:.3g} ns"


def shown_counters(measurement):
    return ", ".join(f"{name} {value:.4g}" for name, value in measurement.counters.items())


def table(measurements):
    """Markdown: one row per benchmark. The last columns compare kez with the row's contender."""
    lines = ["| case | size | contender | time | kez / contender | besides |",
             "|---|---:|---|---:|---:|---|"]
    for name, found in measurements.items():
        case, contender, size = split(name)
        own = measurements.get("/".join(filter(None, (case, "kez", size))))
        ratio = f"{own.time / found.time:.2f}" if own and own is not found else ""
        unit = " an item" if found.isPerItem else ""
        lines.append(f"| {case} | {size} | {contender} | {shown_time(found.time)}{unit} | {ratio} "
                     f"| {shown_counters(found)} |")
    return "\n".join(lines)


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return platform.processor()


def circumstances(context):
    return (f"{processor()}, {context['num_cpus']} processors, Linux {platform.release()}, "
            f"Qt {context.get('qt', '?')}, {context['date'][:10]}")


class Target:
    """One line of the targets: CASE OTHER RATIO. Each side is a benchmark's name, with "@COUNTER" if
    not its time is meant; OTHER may also be a number."""

    def __init__(self, line):
        self.case, self.other, ratio = line.split()
        self.ratio = float(ratio)

    def verdict(self, measurements):
        """(whether it is met or None if it was not measured, text)"""
        own, other = (value_of(side, measurements) for side in (self.case, self.other))
        for side, value in ((self.case, own), (self.other, other)):
            if value is None:
                return None, f"{self.case}: not compared, there is no {side}"
        reached = own / other
        isMet = reached <= self.ratio
        word = "is met" if isMet else "FALLS SHORT"
        return isMet, f"{self.case} / {self.other}: {reached:.2f}, at most {self.ratio}: {word}"


def value_of(side, measurements):
    if re.fullmatch(r"[0-9.]+", side):
        return float(side)
    name, _, counter = side.partition("@")
    found = measurements.get(name)
    return found.value(counter or None) if found else None


def read_targets(path):
    lines = (line.split("#", 1)[0].strip() for line in pathlib.Path(path).read_text().splitlines())
    return [Target(line) for line in lines if line]


def check(path, measurements):
    """Prints a line for each target; returns whether all that were measured are met."""
    verdicts = [target.verdict(measurements) for target in read_targets(path)]
    for _, text in verdicts:
        print(text)
    met = sum(isMet is True for isMet, _ in verdicts)
    print(f"{met} of {sum(isMet is not None for isMet, _ in verdicts)} targets are met")
    return met > 0 and all(isMet is not False for isMet, _ in verdicts)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--check", metavar="TARGETS")
    parser.add_argument("--plot", metavar="DIRECTORY")
    parser.add_argument("results", nargs="+")
    arguments = parser.parse_args()

    measurements, context = load(arguments.results)
    print(circumstances(context) + "\n")
    print(table(measurements))
    if arguments.plot:
        import plots
        plots.write(measurements, table(measurements), circumstances(context), arguments.plot)
    if arguments.check:
        print()
        return 0 if check(arguments.check, measurements) else 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
