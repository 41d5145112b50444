"""The ratios to GMT's programs that were recorded, and how the present ones compare.

A ratio of two programs on the same machine at the same time says more than a time of its own. That
of processor time also stays put on a machine that has other work.
"""

import csv
import os
from typing import NamedTuple

from process import RunFailed

WORSE = 0.8  # of what is recorded, below which a ratio is told


class Ratio(NamedTuple):
    """How many times GMT's program."""
    throughput: float  # soundings a second
    processor: float  # soundings a second of processor time


KEY = ("survey_millions", "threads", "program")
FIELDS = (*KEY, "ratio", "processor_ratio")


def read(path):
    """(survey, threads, program) to Ratio."""
    if not os.path.exists(path):
        return {}
    with open(path) as file:
        rows = csv.DictReader(file)
        if tuple(rows.fieldnames or ()) != FIELDS:
            raise RunFailed(f"{path} has other columns than {','.join(FIELDS)}; remove it, and "
                            "--record makes it anew")
        return {tuple(row[field] for field in KEY):
                Ratio(float(row["ratio"]), float(row["processor_ratio"])) for row in rows}


def write(path, ratios):
    """Replaces what is recorded of the same survey, threads and program; the rest stays."""
    kept = read(path)
    kept.update(ratios)
    with open(path, "w", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(FIELDS)
        for key in sorted(kept, key=lambda key: (float(key[0]), int(key[1]), key[2])):
            writer.writerow([*key, *(f"{value:.3f}" for value in kept[key])])


def is_worse(ratio, recorded):
    """In wall and in processor time: the former alone tells of a machine under load."""
    return all(now < WORSE * before for now, before in zip(ratio, recorded))


def compare(path, ratios):
    """Whether a ratio is worse than recorded by more than a fifth, and lines that say which are,
    which are not recorded, and that the others are none the worse."""
    told = read(path)
    known = {key: ratio for key, ratio in ratios.items() if key in told}
    missing = dict.fromkeys(key[:2] for key in ratios if key not in told)
    worse = [key for key, ratio in known.items() if is_worse(ratio, told[key])]
    lines = [f"bench: nothing is recorded for {millions} million soundings on {threads} threads; "
             "--record keeps it" for millions, threads in missing]
    for millions, threads, program in worse:
        now, before = ratios[millions, threads, program], told[millions, threads, program]
        lines.append(f"WORSE: {millions} million soundings on {threads} threads: "
                     f"{now.throughput:.2f} times {program}, recorded {before.throughput:.2f}; of "
                     f"processor time {now.processor:.2f}, recorded {before.processor:.2f}")
    if known and not worse:
        lines.append(f"bench: none of the {len(known)} ratios that are recorded has become worse "
                     "by more than a fifth")
    return bool(worse), lines
