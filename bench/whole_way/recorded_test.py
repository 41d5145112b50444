#!/usr/bin/python3
"""The alarm of the benchmark: what it compares, and what it says of the rest."""

import os
import tempfile
import unittest

import main
import recorded
from process import RunFailed
from recorded import Ratio

TEN = ("10", "2", "blockmedian")
SMALL = ("0.2", "8", "blockmedian")


class Comparison(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "recorded.csv")
        recorded.write(self.path, {TEN: Ratio(2.0, 1.5)})

    def test_what_was_recorded_is_read_and_kept(self):
        recorded.write(self.path, {SMALL: Ratio(3.0, 2.0)})
        self.assertEqual(recorded.read(self.path), {TEN: (2.0, 1.5), SMALL: (3.0, 2.0)})

    def test_a_ratio_that_is_worse_in_wall_and_processor_time_is_told(self):
        worse, lines = recorded.compare(self.path, {TEN: Ratio(1.5, 1.1)})
        self.assertTrue(worse)
        self.assertEqual(lines, ["WORSE: 10 million soundings on 2 threads: 1.50 times blockmedian, "
                                 "recorded 2.00; of processor time 1.10, recorded 1.50"])

    def test_a_machine_under_load_is_no_alarm(self):
        for ratio in (Ratio(0.5, 1.4), Ratio(1.9, 0.5), Ratio(1.61, 1.21)):
            worse, lines = recorded.compare(self.path, {TEN: ratio})
            self.assertFalse(worse)
            self.assertIn("none of the 1 ratios", lines[0])

    def test_what_is_not_recorded_is_told_once_and_not_called_good(self):
        worse, lines = recorded.compare(self.path, {SMALL: Ratio(1, 1),
                                                    (*SMALL[:2], "blockmean"): Ratio(1, 1)})
        self.assertFalse(worse)
        self.assertEqual(lines, ["bench: nothing is recorded for 0.2 million soundings on 8 threads; "
                                 "--record keeps it"])

    def test_without_a_file_everything_is_unrecorded(self):
        os.remove(self.path)
        self.assertIn("nothing is recorded for 10 million",
                      recorded.compare(self.path, {TEN: Ratio(1, 1)})[1][0])

    def test_a_file_of_other_columns_is_refused(self):
        with open(self.path, "w") as file:
            file.write("survey_millions,threads,program,ratio\n10,2,blockmedian,2.0\n")
        with self.assertRaisesRegex(RunFailed, "other columns"):
            recorded.read(self.path)

    def test_the_recorded_file_can_be_read(self):
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
        self.assertTrue(recorded.read(os.path.join(source, "recorded_ratio.csv")))


class Options(unittest.TestCase):
    def test_numbers_are_parted_by_commas_and_sorted(self):
        self.assertEqual(main.numbers(float)("10,0.2"), [0.2, 10.0])

    def test_what_is_no_number_above_0_is_named(self):
        for kind, text in ((float, "abc"), (float, "0"), (float, "nan"), (int, "1.5"), (int, "0")):
            with self.assertRaisesRegex(main.argparse.ArgumentTypeError, f'"{text}" is not a'):
                main.positive(kind, text)


if __name__ == "__main__":
    unittest.main()
