#!/usr/bin/env python3
"""The same lines in the same order give the same result files, byte by byte, whatever the number of
threads, the split of the lines over runs, the machine's load and the memory."""

import os
import subprocess
import sys

from harness import (LONG, check_same, digests, figure, get_all, main, run_client, simulate,
                     write_filelist)

LINES = 10
CREATE = "grid bay 16 0.5"


def one_run(programs, folder, lines, **options):
    write_filelist(folder, lines)
    run_client(programs, folder, [CREATE, "filelist lines.txt", f"commit 1 {len(lines)}",
                                  "refine", *get_all()], **options)


def split_runs(programs, folder, lines):
    """Several runs of the client, one grid."""
    for number, part in enumerate((lines[:3], lines[3:4], lines[4:])):
        write_filelist(folder, part)
        run_client(programs, folder, [CREATE if number == 0 else "grid bay", "filelist lines.txt",
                                      f"commit 1 {len(part)}"], Threads=number + 1)
    run_client(programs, folder, ["grid bay", "refine", *get_all()])


def refined_between(programs, folder, lines):
    """Refined after four lines and after eight, the rest later."""
    write_filelist(folder, lines)
    rest = len(lines) - 8
    run_client(programs, folder, [CREATE, "filelist lines.txt", "commit 1 4", "refine",
                                  "commit 1 4", "refine 1", f"commit 1 {rest}", "refine",
                                  *get_all()])


def refined_twice(programs, folder, lines):
    write_filelist(folder, lines)
    run_client(programs, folder, [CREATE, "filelist lines.txt", f"commit 1 {len(lines)}", "refine",
                                  "refine", *get_all()])


def under_load(programs, folder, lines):
    """One core, shared with processes that compute without end."""
    core = str(min(os.sched_getaffinity(0)))
    busy = [subprocess.Popen(["taskset", "-c", core, sys.executable, "-c", "while True: pass"])
            for _ in range(3)]
    try:
        one_run(programs, folder, lines, prefix=("taskset", "-c", core), Threads=2)
    finally:
        for process in busy:
            process.kill()
            process.wait()


def run(programs, scratch, random):
    lines = simulate(programs, scratch / "lines", seafloor="mix", lines=LINES,
                     line_length=1500 if LONG else 250, depth=25, beams=256 if LONG else 96,
                     ping_rate=8 if LONG else 4, spikes=0.01, bursts=1, flagged=0.01,
                     offset_lines=3, seed=random.randrange(1 << 30))
    one_run(programs, scratch / "one", lines, Threads=1)
    reference = digests(scratch / "one")
    ways = {
        "2 threads": lambda folder: one_run(programs, folder, lines, Threads=2),
        "8 threads": lambda folder: one_run(programs, folder, lines, Threads=8),
        "lines split over four runs of the client": lambda folder: split_runs(programs, folder,
                                                                              lines),
        "refined between the lines": lambda folder: refined_between(programs, folder, lines),
        "refined twice": lambda folder: refined_twice(programs, folder, lines),
        "one core under load": lambda folder: under_load(programs, folder, lines),
        "64 MiB of memory": lambda folder: one_run(programs, folder, lines, MemoryMiB=64),
    }
    for number, (what, way) in enumerate(ways.items()):
        folder = scratch / f"way{number}"
        way(folder)
        check_same(folder, reference, what)
    size = sum(line.stat().st_size for line in lines) / 1e6
    figure(f"same grid: {len(ways) + 1} ways to grid {len(lines)} lines ({size:.0f} MB) gave the "
           f"same bytes in {len(reference)} result files")


main("same_grid", run)
