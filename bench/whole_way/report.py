"""The tables of the benchmark, on the console and as CSV."""

import csv
import os
import platform
import statistics
import subprocess

from recorded import Ratio
from runs import STAGES

GMT_PROGRAMS = ("blockmedian", "blockmean")


def median(values):
    return statistics.median(values)


class Results:
    """All runs of one survey of `millions` of soundings."""

    def __init__(self, millions, survey):
        self.millions = f"{millions:g}"
        self.survey = survey
        self.runs = []
        self.spacing_m = 0.0  # of the finest nodes

    def of(self, program, threads=1):
        return [run for run in self.runs if (run.program, run.threads) == (program, threads)]

    def whole_s(self, program, threads=1):
        return median(run.cost.wall_s for run in self.of(program, threads))

    def stage(self, threads, stage, what="wall_s"):
        return median(getattr(run.stages[stage], what) for run in self.of("quarro", threads))

    def throughput(self, program, threads=1):
        """Soundings a second."""
        return self.of(program, threads)[0].soundings / self.whole_s(program, threads)

    def processor_s_a_sounding(self, program, threads=1):
        return median(run.cost.processor_s / run.soundings for run in self.of(program, threads))

    def ratios(self, threads):
        """(survey, threads, GMT's program) to the Ratio."""
        return {(self.millions, str(threads), program):
                Ratio(self.throughput("quarro", threads) / self.throughput(program),
                      self.processor_s_a_sounding(program) /
                      self.processor_s_a_sounding("quarro", threads))
                for program in GMT_PROGRAMS}


def print_table(title, heads, rows):
    rows = [[cell if isinstance(cell, str) else f"{cell:.2f}" for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in [heads, *rows]) for i in range(len(heads))]
    print(f"\n{title}")
    for row in [heads, *rows]:
        print("  ".join(cell.rjust(width) for cell, width in zip(row, widths)))


def print_machine(build):
    cpu = next((line.partition(":")[2].strip() for line in open("/proc/cpuinfo")
                if line.startswith("model name")), platform.machine())
    memory_kib = int(open("/proc/meminfo").readline().split()[1])
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], capture_output=True,
                            text=True).stdout.strip()
    print(f"machine: {os.cpu_count()} x {cpu}, {memory_kib / 2**20:.0f} GiB, "
          f"Linux {platform.release()}, load {os.getloadavg()[0]:.1f}")
    print(f"build: {build}, source {commit or 'without git'}")


def print_whole_way(all_results, threads):
    rows = []
    for results in all_results:
        runs = results.of("quarro", threads)
        whole_s = results.whole_s("quarro", threads)
        rows.append([
            results.millions, str(runs[0].soundings), str(runs[0].nodes),
            *(f"{results.stage(threads, stage):.2f} / "
              f"{results.stage(threads, stage, 'processor_s'):.2f}" for stage in STAGES),
            f"{whole_s:.2f} / {median(run.cost.processor_s for run in runs):.2f}",
            runs[0].soundings / whole_s / 1e6, whole_s / (runs[0].soundings / 1e6),
            f"{max(run.cost.peak_rss_mib for run in runs):.0f}",
            f"{max(run.cost.peak_anonymous_mib for run in runs):.0f}"])
    print_table(f"The whole way on {threads} threads: wall / processor seconds, median of "
                f"{len(all_results[0].of('quarro', threads))}; peak memory in MiB",
                ["million", "soundings", "nodes", *STAGES, "whole", "million/s", "s/million", "RSS",
                 "anonymous"], rows)


def print_threads(all_results, threads):
    least = min(threads)
    stages = [stage for stage in STAGES if stage != "start"]
    rows = [[results.millions, str(count),
             *(results.stage(least, stage) / results.stage(count, stage) for stage in stages),
             results.whole_s("quarro", least) / results.whole_s("quarro", count)]
            for results in all_results for count in threads if count != least]
    if rows:
        print_table(f"Times as fast as on {least} thread{'s' if least > 1 else ''}",
                    ["million", "threads", *stages, "whole"], rows)


def print_gmt(all_results, threads):
    rows = []
    for results in all_results:
        for program in GMT_PROGRAMS:
            runs = results.of(program)
            rows.append([results.millions, program, f"{results.spacing_m:.3f}", str(runs[0].nodes),
                         f"{results.whole_s(program):.2f} / "
                         f"{median(run.cost.processor_s for run in runs):.2f}",
                         results.throughput(program) / 1e6,
                         f"{max(run.cost.peak_rss_mib for run in runs):.0f}",
                         *results.ratios(threads)[results.millions, str(threads), program]])
    print_table(f"GMT on decoded soundings, one thread; ratio: Quarro's throughput on {threads} "
                "threads, the whole way, over its own, and the same of a second of processor time",
                ["million", "program", "spacing", "blocks", "seconds", "million/s", "RSS", "ratio",
                 "processor"], rows)


def print_requests(reload_s, cells, box_costs, millions):
    print(f"\nReload of a grid of {cells} cells: {1000 * median(reload_s):.1f} ms")
    for form in ("text", "BAG"):
        box_s, whole_s = (median(box_costs[form, part]) for part in ("box", "whole"))
        print(f"get of a 1 % box of {millions} million soundings as {form}: {1000 * box_s:.1f} ms, "
              f"{100 * box_s / whole_s:.2f} % of the whole ({whole_s:.3f} s)")


def write_csv(path, all_results):
    """One row a run and stage; "whole" is the run from start to exit."""
    with open(path, "w", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["survey_millions", "soundings", "nodes", "program", "threads", "run",
                         "stage", "wall_s", "processor_s", "peak_rss_mib", "peak_anonymous_mib"])
        for results in all_results:
            numbers = {}
            for run in results.runs:
                key = run.program, run.threads
                numbers[key] = numbers.get(key, 0) + 1
                for stage, cost in [*run.stages.items(), ("whole", run.cost)]:
                    memory = ([f"{cost.peak_rss_mib:.1f}", f"{cost.peak_anonymous_mib:.1f}"]
                              if stage == "whole" else ["", ""])
                    writer.writerow([results.millions, run.soundings, run.nodes, *key, numbers[key],
                                     stage, f"{cost.wall_s:.4f}", f"{cost.processor_s:.4f}",
                                     *memory])
