#!/usr/bin/python3
"""Measures the whole way from survey lines to a BAG, beside GMT's block median and block mean.

    main.py [--sizes 1,10,50] [--threads 1,2] [--runs 3] [--record] [--build build/release]

Surveys, tables and the plot are kept in build/bench. Ends with status 1 where a ratio to GMT is
worse than the one in bench/recorded_ratio.csv by more than a fifth, in wall and in processor time.
"""

import argparse
import math
import os
import subprocess
import sys

import plot
import recorded
import report
import runs
import survey
from process import RunFailed

RECORDED = "bench/recorded_ratio.csv"


def positive(kind, text):
    try:
        value = kind(text)
    except ValueError:
        value = 0
    if not 0 < value < math.inf:
        what = "a number" if kind is float else "a whole number"
        raise argparse.ArgumentTypeError(f"\"{text}\" is not {what} above 0")
    return value


def numbers(kind):
    """A list of them, parted by commas."""
    return lambda text: sorted({positive(kind, word) for word in text.split(",")})


def arguments():
    parser = argparse.ArgumentParser(description="The whole way from survey lines to a BAG, timed.")
    parser.add_argument("--sizes", type=numbers(float), default=[1.0, 10.0, 50.0],
                        help="millions of soundings, parted by commas (1,10,50)")
    parser.add_argument("--threads", type=numbers(int), default=sorted({1, os.cpu_count()}),
                        help="threads of the engine, parted by commas (1 and one a core)")
    parser.add_argument("--runs", type=lambda text: positive(int, text), default=3,
                        help="of each program (3)")
    parser.add_argument("--record", action="store_true",
                        help="keep the ratios to GMT for comparison")
    parser.add_argument("--build", default="build/release",
                        help="programs of this build, as they are")
    return parser.parse_args()


def measure(tools, data, millions, options):
    """All programs by turns, so that a change of the machine's load meets each of them."""
    results = report.Results(millions, survey.survey_of(tools.simulator, data, millions))
    soundings = runs.DecodedSoundings(tools, results.survey)
    for number in range(options.runs):
        print(f"{results.millions} million soundings, run {number + 1} of {options.runs}",
              file=sys.stderr)
        for threads in options.threads:
            results.runs.append(runs.quarro(tools, results.survey, threads))
        results.spacing_m = runs.finest_spacing(tools.path("survey.bag"))
        for module in report.GMT_PROGRAMS:
            results.runs.append(runs.gmt(tools, soundings, module, results.spacing_m))
    return results


def main():
    options = arguments()
    folder = os.path.abspath("build/bench")
    data = os.path.join(folder, "data")
    os.makedirs(data, exist_ok=True)
    tools = runs.Tools(os.path.abspath(options.build), os.getcwd(), os.path.join(folder, "work"))
    most = max(options.threads)
    recorded.read(RECORDED)  # a file that cannot be read is told now rather than after it all
    report.print_machine(options.build)

    all_results = [measure(tools, data, millions, options) for millions in options.sizes]
    reload_s, cells = runs.reload(tools, survey.sparse_survey(tools.simulator, data), options.runs)
    runs.quarro(tools, all_results[-1].survey, most)
    box_costs = runs.box_against_whole(tools, most, options.runs)
    tools.clear()

    report.print_whole_way(all_results, most)
    report.print_threads(all_results, options.threads)
    report.print_gmt(all_results, most)
    report.print_requests(reload_s, cells, box_costs, all_results[-1].millions)
    report.write_csv(os.path.join(folder, "runs.csv"), all_results)
    plot.draw(os.path.join(folder, "bench.png"), all_results, options.threads)
    print("\nbench: build/bench/runs.csv and build/bench/bench.png")

    ratios = {key: ratio for results in all_results for key, ratio in results.ratios(most).items()}
    if options.record:
        recorded.write(RECORDED, ratios)
        print("bench: the ratios are recorded in " + RECORDED)
        return 0
    worse, lines = recorded.compare(RECORDED, ratios)
    print("\n".join(lines))
    return 1 if worse else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (RunFailed, OSError, subprocess.CalledProcessError) as failure:
        sys.exit(f"bench: {failure}")
