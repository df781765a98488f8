#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

"""Prints the medians of benchmark results, with ratios, as a Markdown table.

A benchmark is named CASE/CONTENDER or CASE/CONTENDER/SIZE. The contender "kez" is compared with the
others of the same case and size. A case that counts items is shown per item.
"""

import argparse
import json
import math
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


class Unusable(Exception):
    """A file that does not hold what it should: a line for the user."""


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
        results = read_results(path)
        context.update(results["context"])
        for record in results["benchmarks"]:
            if record["run_type"] != "iteration":
                continue
            if record.get("error_occurred"):
                raise Unusable(f"{path}: {record['run_name']}: {record['error_message']}")
            name = SUFFIXES.sub("", record["run_name"])
            if "/" not in name:
                raise Unusable(f"{path}: {name}: a benchmark is named CASE/CONTENDER")
            records[name].append(record)
            files_of[name] = file
    # As they are registered: the repetitions run in random order.
    order = sorted(records, key=lambda name: (files_of[name], position_in_file(records[name][0])))
    return {name: Measurement(records[name]) for name in by_case(order)}, context


def read_text(path):
    try:
        return pathlib.Path(path).read_text(encoding="utf-8")
    except (OSError, UnicodeDecodeError) as failure:
        raise Unusable(f"{path}: {getattr(failure, 'strerror', None) or 'not a text'}")


def read_results(path):
    try:
        results = json.loads(read_text(path))
    except json.JSONDecodeError as failure:
        raise Unusable(f"{path}: not JSON: {failure}")
    context = results.get("context") if isinstance(results, dict) else None
    if not isinstance(context, dict) or not {"num_cpus", "date"} <= context.keys() \
            or not isinstance(results.get("benchmarks"), list):
        raise Unusable(f"{path}: not the results of a benchmark")
    return results


def position_in_file(record):
    return record["family_index"], record["per_family_instance_index"]


def split(name):
    """Case, contender, size; the size may be missing."""
    case, contender, *size = name.split("/")
    return case, contender, "/".join(size)


def by_case(names):
    """The contenders of a case one below the other, by size; what is first of a kind leads."""
    cases, sizes = {}, {}
    for name in names:
        case, _, size = split(name)
        cases.setdefault(case, len(cases))
        sizes.setdefault((case, size), len(sizes))
    return sorted(names, key=lambda name: (cases[split(name)[0]], sizes[split(name)[::2]]))


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
            f"Qt {context.get('qt', '?')}, {context.get('peers') or 'no peers'}, "
            f"{context['date'][:10]}")


class Target:
    """One line of the targets: CASE OTHER RATIO. Each side is a benchmark's name, with "@COUNTER" if
    not its time is meant; OTHER may also be a number."""

    def __init__(self, line):
        self.case, self.other, ratio = line.split()
        self.ratio = float(ratio)
        if not 0 < self.ratio < math.inf or "/" not in self.case:
            raise ValueError(ratio)

    def verdict(self, measurements):
        """(whether it is met or None if it was not measured, text)"""
        own, other = (value_of(side, measurements) for side in (self.case, self.other))
        for side, value in ((self.case, own), (self.other, other)):
            if value is None:
                return None, f"{self.case}: not compared, there is no {side}"
        isMet = own <= self.ratio * other
        reached = own / other if other else math.inf if own else 0
        word = "is met" if isMet else "FALLS SHORT"
        return isMet, f"{self.case} / {self.other}: {reached:.2f}, at most {self.ratio}: {word}"


def value_of(side, measurements):
    if re.fullmatch(r"[0-9]+(\.[0-9]+)?", side):
        return float(side)
    name, _, counter = side.partition("@")
    found = measurements.get(name)
    return found.value(counter or None) if found else None


def read_targets(path):
    targets = []
    for number, line in enumerate(read_text(path).splitlines(), start=1):
        line = line.split("#", 1)[0].strip()
        try:
            if line:
                targets.append(Target(line))
        except ValueError:
            raise Unusable(f"{path}:{number}: expected CASE OTHER RATIO, found: {line}")
    return targets


def check(path, measurements):
    """Prints a line for each target of a measured case, and how many others there are; returns
    whether all that were measured are met."""
    cases = {split(name)[0] for name in measurements}
    targets = read_targets(path)
    asked = [target for target in targets if split(target.case)[0] in cases]
    verdicts = [target.verdict(measurements) for target in asked]
    for _, text in verdicts:
        print(text)
    if len(asked) < len(targets):
        print(f"targets of cases that were not run: {len(targets) - len(asked)}")
    met = sum(isMet is True for isMet, _ in verdicts)
    print(f"{met} of {sum(isMet is not None for isMet, _ in verdicts)} targets are met")
    return met > 0 and all(isMet is not False for isMet, _ in verdicts)


def report(arguments):
    """Returns whether nothing was to be checked or the targets are met."""
    measurements, context = load(arguments.results)
    print(circumstances(context) + "\n")
    print(table(measurements))
    if arguments.plot:
        import plots
        plots.write(measurements, table(measurements), circumstances(context), arguments.plot)
    if not arguments.check:
        return True
    print()
    return check(arguments.check, measurements)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--check", metavar="TARGETS")
    parser.add_argument("--plot", metavar="DIRECTORY")
    parser.add_argument("results", nargs="+")
    try:
        return 0 if report(parser.parse_args()) else 1
    except Unusable as failure:
        print(failure, file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
