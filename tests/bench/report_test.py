#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

"""Tests of benchmarks/report.py: report_test.py REPORT"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

REPORT = None


def record(name, nanoseconds, position=0, **more):
    return {
        "name": name, "run_name": name, "run_type": "iteration", "family_index": position,
        "per_family_instance_index": 0, "iterations": 1, "threads": 1, "real_time": nanoseconds,
        "cpu_time": nanoseconds, "time_unit": "ns", **more,
    }


def per_item(name, items_per_second, position=0):
    return record(name, 1e6, position, items_per_second=items_per_second)


class ReportTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def written(self, name, text):
        path = self.directory / name
        path.write_text(text)
        return path

    def results(self, *records, name="results.json", **more):
        context = {"num_cpus": 2, "date": "2026-11-22T01:02:03+00:00", "qt": "6.4.2", **more}
        return self.written(name, json.dumps({"context": context, "benchmarks": records}))

    def run_report(self, *arguments):
        return subprocess.run([sys.executable, REPORT, *map(str, arguments)], text=True,
                              capture_output=True)

    def rows(self, *paths):
        """The cells of the table's rows."""
        done = self.run_report(*paths)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        rows = [line for line in done.stdout.splitlines() if line.startswith("|")]
        return [[cell.strip() for cell in row.strip("|").split("|")] for row in rows[2:]]

    def check(self, targets, *records):
        """The exit code and the lines after the table."""
        done = self.run_report("--check", self.written("targets", targets),
                               self.results(*records))
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout.split("\n\n")[2].splitlines()

    def assert_unusable(self, message, *arguments):
        done = self.run_report(*arguments)
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn(message, done.stderr)

    # The table

    def test_medians_are_compared(self):
        rows = self.rows(self.results(
            record("A/kez", 30), record("A/kez", 10), record("A/kez", 1000),
            record("A/peer", 60, 1), record("A/peer", 50, 1)))
        self.assertEqual(rows, [["A", "", "kez", "30 ns", "", ""],
                                ["A", "", "peer", "55 ns", "0.55", ""]])

    def test_sizes_are_compared_one_by_one(self):
        rows = self.rows(self.results(
            record("A/kez/10", 10), record("A/kez/100", 30, 1),
            record("A/peer/10", 40, 2), record("A/peer/100", 60, 3)))
        self.assertEqual([row[4] for row in rows], ["", "0.25", "", "0.50"])
        self.assertEqual([row[1] for row in rows], ["10", "10", "100", "100"])

    def test_a_contender_alone_has_no_ratio(self):
        self.assertEqual(self.rows(self.results(record("A/peer", 5))),
                         [["A", "", "peer", "5 ns", "", ""]])

    def test_items_are_shown_each(self):
        rows = self.rows(self.results(per_item("A/kez", 1e6), per_item("A/peer", 5e5, 1)))
        self.assertEqual([row[3:5] for row in rows],
                         [["1 us an item", ""], ["2 us an item", "0.50"]])

    def test_times_have_a_fitting_unit(self):
        rows = self.rows(self.results(
            record("A/kez", 999), record("B/kez", 12_345, 1), record("C/kez", 3.5, 2, time_unit="ms"),
            record("D/kez", 2, 3, time_unit="s"), record("E/kez", 3000, 4, time_unit="s")))
        self.assertEqual([row[3] for row in rows], ["999 ns", "12.3 us", "3.5 ms", "2 s", "3000 s"])

    def test_processor_time_counts_unless_the_name_says_real(self):
        rows = self.rows(self.results(
            record("A/kez", 10, real_time=70), record("A/peer/real_time", 20, 1, real_time=80),
            record("A/other/manual_time", 20, 2, real_time=90)))
        self.assertEqual([row[2:4] for row in rows],
                         [["kez", "10 ns"], ["peer", "80 ns"], ["other", "90 ns"]])

    def test_what_the_library_appends_to_a_name_is_left_out(self):
        rows = self.rows(self.results(record("A/kez/10/iterations:5/repeats:3", 10)))
        self.assertEqual(rows[0][:3], ["A", "10", "kez"])

    def test_counters_are_medians_too(self):
        rows = self.rows(self.results(
            record("A/kez", 10, calls=1), record("A/kez", 10, calls=3), record("A/kez", 10, calls=9)))
        self.assertEqual(rows[0][5], "calls 3")

    def test_aggregates_are_left_out(self):
        rows = self.rows(self.results(
            record("A/kez", 10), record("A/kez", 99, run_type="aggregate")))
        self.assertEqual(rows, [["A", "", "kez", "10 ns", "", ""]])

    def test_rows_have_the_order_of_registration(self):
        # The repetitions run in random order; files follow each other.
        first = self.results(record("B/kez", 1, 1), record("A/kez", 1, 0), record("B/kez", 1, 1))
        second = self.results(record("C/kez", 1, 5), name="second.json")
        self.assertEqual([row[0] for row in self.rows(second, first)], ["C", "A", "B"])

    def test_contenders_of_a_case_and_size_stand_together(self):
        results = self.results(
            *(record(name, 10, family_index=index)
              for index, name in enumerate(("A/kez/1", "A/kez/2", "B/kez", "A/peer/2", "B/peer"))))
        self.assertEqual([row[:3] for row in self.rows(results)],
                         [["A", "1", "kez"], ["A", "2", "kez"], ["A", "2", "peer"],
                          ["B", "", "kez"], ["B", "", "peer"]])

    def test_a_benchmark_that_failed_is_named(self):
        self.assert_unusable("A/kez: no disk", self.results(
            record("A/kez", 0, error_occurred=True, error_message="no disk")))

    def test_the_circumstances_name_the_peers(self):
        for peers, shown in (("spdlog 1.10", "spdlog 1.10"), ("", "no peers")):
            with self.subTest(peers):
                done = self.run_report(self.results(record("A/kez", 10), peers=peers))
                self.assertTrue(done.stdout.splitlines()[0].endswith(
                    f", Qt 6.4.2, {shown}, 2026-11-22"), done.stdout)

    # The targets

    def test_a_target_is_met_up_to_its_ratio(self):
        code, lines = self.check("A/kez A/peer 0.5", record("A/kez", 10), record("A/peer", 20, 1))
        self.assertEqual((code, lines),
                         (0, ["A/kez / A/peer: 0.50, at most 0.5: is met", "1 of 1 targets are met"]))

    def test_a_target_falls_short(self):
        code, lines = self.check("A/kez A/peer 0.5\nA/peer A/kez 3",
                                 record("A/kez", 11), record("A/peer", 20, 1))
        self.assertEqual(code, 1)
        self.assertIn("A/kez / A/peer: 0.55, at most 0.5: FALLS SHORT", lines)
        self.assertEqual(lines[-1], "1 of 2 targets are met")

    def test_a_target_that_was_not_measured_is_no_fault(self):
        code, lines = self.check("A/kez A/gone 0.5\nA/kez A/peer 2",
                                 record("A/kez", 10), record("A/peer", 20, 1))
        self.assertEqual(code, 0)
        self.assertIn("A/kez: not compared, there is no A/gone", lines)
        self.assertEqual(lines[-1], "1 of 1 targets are met")

    def test_targets_of_which_none_was_measured_are_not_met(self):
        code, lines = self.check("B/kez B/peer 0.5", record("A/kez", 10))
        self.assertEqual((code, lines), (1, ["targets of cases that were not run: 1",
                                             "0 of 0 targets are met"]))

    def test_counters_and_numbers_can_be_compared(self):
        code, lines = self.check("A/kez@calls 2 1.0\nA/kez@calls A/peer@calls 0.5\nA/kez@gone 2 1",
                                 record("A/kez", 10, calls=2), record("A/peer", 20, 1, calls=5))
        self.assertEqual(code, 0)
        self.assertEqual(lines, ["A/kez@calls / 2: 1.00, at most 1.0: is met",
                                 "A/kez@calls / A/peer@calls: 0.40, at most 0.5: is met",
                                 "A/kez@gone: not compared, there is no A/kez@gone",
                                 "2 of 2 targets are met"])

    def test_nothing_is_enough_where_nothing_is_allowed(self):
        self.assertEqual(self.check("A/kez@calls 0 1", record("A/kez", 10, calls=0))[0], 0)
        self.assertEqual(self.check("A/kez@calls 0 1", record("A/kez", 10, calls=1))[0], 1)

    def test_comments_and_empty_lines_are_skipped(self):
        code, lines = self.check("# A/kez\n\n  A/kez  20  1.0  # why\n", record("A/kez", 10))
        self.assertEqual((code, lines[-1]), (0, "1 of 1 targets are met"))

    def test_a_malformed_target_is_named(self):
        results = self.results(record("A/kez", 10))
        for line in ("A/kez 20", "A/kez 20 1 2", "A/kez 20 much", "A/kez 20 nan", "A/kez 20 -1",
                     "A/kez 20 inf", "A/kez 20 0", "A 20 1"):
            with self.subTest(line):
                targets = self.written("targets", f"A/kez 20 1\n{line} # so\n")
                self.assert_unusable(f"targets:2: expected CASE OTHER RATIO, found: {line}\n",
                                     "--check", targets, results)

    # Files that are of no use

    def test_missing_files_are_named(self):
        results = self.results(record("A/kez", 10))
        self.assert_unusable("gone.json: No such file", self.directory / "gone.json")
        self.assert_unusable("gone: No such file", "--check", self.directory / "gone", results)
        self.assert_unusable("Is a directory", self.directory)

    def test_results_that_are_not_json_are_named(self):
        self.assert_unusable("cut.json: not JSON", self.written("cut.json", '{"context": '))
        self.assert_unusable("empty.json: not JSON", self.written("empty.json", ""))
        path = self.directory / "binary.json"
        path.write_bytes(b"\xff\xfe\x00")
        self.assert_unusable("binary.json: not a text", path)

    def test_json_that_is_no_result_is_named(self):
        context = '{"num_cpus": 2, "date": "2026-11-22"}'
        for text in ("[]", "{}", '"context benchmarks"', f'{{"context": {context}}}',
                     '{"context": {}, "benchmarks": []}', '{"context": 1, "benchmarks": []}',
                     f'{{"context": {context}, "benchmarks": {{}}}}'):
            with self.subTest(text):
                self.assert_unusable("other.json: not the results of a benchmark",
                                     self.written("other.json", text))

    def test_a_name_without_contender_is_refused(self):
        self.assert_unusable("Alone: a benchmark is named CASE/CONTENDER",
                             self.results(record("Alone", 10)))


if __name__ == "__main__":
    REPORT = sys.argv.pop(1)
    unittest.main()
