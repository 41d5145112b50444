"""The ratios of throughput to GMT's programs that were recorded, and how the present ones compare.

A ratio of two programs on the same machine at the same time says more than a time of its own.
"""

import csv
import os

WORSE = 0.8  # of what is recorded, below which a ratio is told
FIELDS = ("survey_millions", "threads", "program", "ratio")


def read(path):
    """(survey, threads, program) to ratio."""
    if not os.path.exists(path):
        return {}
    with open(path) as file:
        return {(row["survey_millions"], row["threads"], row["program"]): float(row["ratio"])
                for row in csv.DictReader(file)}


def write(path, ratios):
    """Replaces what is recorded of the same survey, threads and program; the rest stays."""
    kept = read(path)
    kept.update(ratios)
    with open(path, "w", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(FIELDS)
        for key in sorted(kept, key=lambda key: (float(key[0]), int(key[1]), key[2])):
            writer.writerow([*key, f"{kept[key]:.3f}"])


def regressions(path, ratios):
    """A line for each ratio that is worse than recorded by more than a fifth."""
    told = read(path)
    return [f"WORSE: {millions} million soundings on {threads} threads: {ratio:.2f} times "
            f"{program}, recorded {told[millions, threads, program]:.2f}"
            for (millions, threads, program), ratio in ratios.items()
            if ratio < WORSE * told.get((millions, threads, program), 0.0)]
