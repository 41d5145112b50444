"""Draws the benchmark: cost against size, throughput, memory, and cost against threads."""

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

from report import GMT_PROGRAMS, median
from runs import STAGES


def draw_stages(axis, all_results, threads, what, title):
    sizes = [results.millions for results in all_results]
    bottom = [0.0] * len(sizes)
    for stage in STAGES:
        heights = [results.stage(threads, stage, what) / float(results.millions)
                   for results in all_results]
        axis.bar(sizes, heights, bottom=bottom, label=stage)
        bottom = [low + height for low, height in zip(bottom, heights)]
    axis.set(title=title, xlabel="million soundings", ylabel="seconds a million")
    axis.legend()


def draw_throughput(axis, all_results, threads):
    sizes = [float(results.millions) for results in all_results]
    for count in threads:
        axis.plot(sizes, [results.throughput("quarro", count) / 1e6 for results in all_results],
                  "o-", label=f"Quarro from GSF to BAG, threads: {count}")
    for program in GMT_PROGRAMS:
        axis.plot(sizes, [results.throughput(program) / 1e6 for results in all_results], "s--",
                  label=f"{program} on decoded soundings")
    axis.set(title="throughput", xlabel="million soundings", ylabel="million soundings a second",
             xscale="log", ylim=(0, None))
    axis.legend()


def draw_memory(axis, all_results, threads):
    sizes = [float(results.millions) for results in all_results]
    for what, label in (("peak_rss_mib", "resident, files mapped included"),
                        ("peak_anonymous_mib", "anonymous")):
        axis.plot(sizes, [max(getattr(run.cost, what) for run in results.of("quarro", threads))
                          for results in all_results], "o-", label=label)
    axis.set(title=f"peak memory on {threads} threads", xlabel="million soundings", ylabel="MiB",
             xscale="log", ylim=(0, None))
    axis.legend()


def draw_threads(axis, all_results, threads):
    for results in all_results:
        axis.plot(threads, [median(run.cost.wall_s for run in results.of("quarro", count)) /
                            float(results.millions) for count in threads], "o-",
                  label=f"{results.millions} million")
    axis.set(title="cost against threads", xlabel="threads", ylabel="seconds a million",
             xticks=threads, ylim=(0, None))
    axis.legend()


def draw_ratios(axis, all_results, threads):
    sizes = [float(results.millions) for results in all_results]
    for program in GMT_PROGRAMS:
        axis.plot(sizes, [results.ratios(threads)[results.millions, str(threads),
                                                         program].throughput
                          for results in all_results], "o-", label=f"over {program}")
    axis.set(title=f"Quarro's throughput over GMT's, threads: {threads} and 1",
             xlabel="million soundings", xscale="log", ylim=(0, None))
    axis.legend()


def draw(path, all_results, threads):
    most = max(threads)
    figure, axes = plt.subplots(2, 3, figsize=(18, 10), constrained_layout=True)
    draw_stages(axes[0][0], all_results, most, "wall_s", f"wall time by stage, threads: {most}")
    draw_stages(axes[0][1], all_results, most, "processor_s",
                f"processor time by stage, threads: {most}")
    draw_throughput(axes[0][2], all_results, threads)
    draw_memory(axes[1][0], all_results, most)
    draw_threads(axes[1][1], all_results, threads)
    draw_ratios(axes[1][2], all_results, most)
    figure.savefig(path, dpi=70)
