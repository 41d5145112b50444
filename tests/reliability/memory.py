#!/usr/bin/env python3
"""The client's anonymous memory stays under Engine/MemoryMiB in ingest, refinement and the writing of
results, whatever the size of the survey. (Mapped files are not counted: the kernel takes their pages
back when others need them.)"""

import re
import shutil
import time

from harness import (LONG, SKIPPED, Client, check, figure, main, simulate,
                     write_filelist)

EVERY_S = 0.004
MIB = 1 << 20
# Millions of soundings, MemoryMiB.
CASES = ([(1, 1024), (1, 128), (10, 1024), (10, 128), (50, 1024), (50, 128)] if LONG
         else [(1, 128), (4, 128)])


def anonymous_bytes(process):
    with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
        found = re.search(r"RssAnon:\s+(\d+) kB", status.read())
    return int(found.group(1)) * 1024 if found else 0


def peak_until(client, text, count):
    """The greatest anonymous memory until the client has told the text `count` times."""
    peak = 0
    while client.told().count(text) < count:
        for _ in range(5):
            if client.process.poll() is not None:
                check(client.told().count(text) >= count, f"the client ended early:\n"
                                                          f"{client.told()}")
                return peak
            peak = max(peak, anonymous_bytes(client.process))
            time.sleep(EVERY_S)
    return peak


def survey(programs, folder, millions, seed):
    """Lines of a million soundings each."""
    return simulate(programs, folder, seafloor="mix", lines=millions, line_length=2000, depth=40,
                    beams=256, ping_rate=8, spikes=0.005, seed=seed)


def grid(programs, scratch, lines, memory_mib):
    """Peaks of the phases, in MiB."""
    work = scratch / "work"
    write_filelist(work, lines)
    client = Client(programs, work, ["grid bay 32 0.5", "filelist lines.txt"], typing=True,
                    MemoryMiB=memory_mib, Threads=2)
    phases = {
        "ingest": ([f"commit 1 {len(lines)}", "synch"], "grid synchronised OK", 1),
        "refinement": (["refine"], "grid refined OK", 1),
        "BAG": (["set bbox current", "set projection utm 31", "get depth full bag full.bag",
                 "synch"], "grid synchronised OK", 2),
        "text": (["get depth full full.txt", "get hypotheses full hypotheses.txt", "synch"],
                 "grid synchronised OK", 3),
    }
    peaks = {}
    for phase, (commands, text, count) in phases.items():
        client.type("\n".join(commands) + "\n")
        peaks[phase] = peak_until(client, text, count) / MIB
    client.type("exit\n")
    check(client.wait() == 0, f"the client did not end well:\n{client.told()}")
    check(client.messages().count(" transf") == 3 and "fail" not in client.messages(),
          f"not everything went well:\n{client.messages()}")
    shutil.rmtree(work)
    return peaks


def run(programs, scratch, random):
    if programs.sanitized:
        print("memory: SKIPPED: sanitizers take memory of their own")
        return SKIPPED
    seed = random.randrange(1 << 30)
    lines, exceeded = [], []
    for millions, memory_mib in CASES:
        if len(lines) != millions:
            shutil.rmtree(scratch / "lines", ignore_errors=True)
            lines = survey(programs, scratch / "lines", millions, seed)
        began = time.monotonic()
        peaks = grid(programs, scratch, lines, memory_mib)
        text = ", ".join(f"{phase} {peak:.0f}" for phase, peak in peaks.items())
        figure(f"memory: {millions} million soundings with MemoryMiB {memory_mib}: peak MiB of "
               f"{text} ({time.monotonic() - began:.0f} s)")
        if max(peaks.values()) > memory_mib:
            exceeded.append(f"{millions} million soundings took {max(peaks.values()):.0f} MiB of "
                            f"{memory_mib}")
    check(not exceeded, "; ".join(exceeded))


main("memory", run)
