"""The surveys of the benchmark: simulated once, and kept."""

import glob
import os
import re
import shutil
import subprocess

BEAMS = 400
PINGS_A_METRE = 2.5
# A survey over a shallow seafloor with everything on it, as a 400-beam echosounder at ten pings a
# second and eight knots gives it, placed to some decimetres; without the canyon at its end, and
# heading north, so that the box around it is filled.
OPTIONS = ["--seafloor", "mix", "--depth", "40", "--canyon-depth", "1", "--heading", "0",
           "--beams", str(BEAMS), "--ping-rate", "10", "--speed", "4", "--spikes", "0.01",
           "--flagged", "0.01", "--horizontal-fixed", "0.3",
           "--horizontal-proportional", "0.005", "--seed", "2026"]
# Wide cells of few soundings: ten thousand cells of 32 m.
SPARSE_OPTIONS = ["--seafloor", "slope", "--slope", "0", "--depth", "100", "--heading", "0",
                  "--lines", "9", "--line-length", "3500", "--beams", "128", "--ping-rate", "1",
                  "--speed", "4", "--horizontal-fixed", "0.3", "--seed", "2026"]


class Survey:
    """Lines in a directory, and how many beams they hold."""

    def __init__(self, simulator, directory, options):
        self.directory = directory
        told = os.path.join(directory, "options.txt")
        if not (os.path.exists(told) and open(told).readline().split() == options):
            shutil.rmtree(directory, ignore_errors=True)
            summary = subprocess.run([simulator, "--output", directory, *options], check=True,
                                     stdout=subprocess.PIPE, text=True)
            with open(told, "w") as file:
                file.write(" ".join(options) + "\n" + summary.stdout)
        self.beams = int(re.search(r": (\d+) soundings", open(told).read()).group(1))
        self.lines = sorted(glob.glob(os.path.join(directory, "*.gsf")))
        self.bytes = sum(os.path.getsize(line) for line in self.lines)
        self.file_list = os.path.join(directory, "lines.txt")
        with open(self.file_list, "w") as file:
            file.write("\n".join(self.lines) + "\n")


def survey_of(simulator, data, millions):
    """As many lines as make the survey about square, four and a quarter kilometres at 50 million."""
    lines = max(2, round(4 * millions ** 0.5))
    length_m = millions * 1e6 / lines / (BEAMS * PINGS_A_METRE)
    options = OPTIONS + ["--lines", str(lines), "--line-length", f"{length_m:.1f}"]
    return Survey(simulator, os.path.join(data, f"{millions:g}M"), options)


def sparse_survey(simulator, data):
    return Survey(simulator, os.path.join(data, "sparse"), SPARSE_OPTIONS)
