#!/usr/bin/env python3
"""exit with work outstanding loses no result that was asked for and no line that was submitted;
Ctrl-C ends the program at once and leaves the grid whole."""

import re
import shutil
import signal
import time

from harness import (LONG, RESULTS, Client, check, check_enough, check_same, content, digests,
                     earlier_moments, figure, get_all, ignore_nothing, lines_in_store, main,
                     run_client, simulate, write_filelist)
from kill import PHASES, check_files, check_grid, durations, starts, whole_run


def exit_with_results(programs, scratch, reference):
    """Everything that was asked for just before exit is in its file."""
    work = scratch / "results"
    shutil.copytree(scratch / "reference" / "bay", work / "bay")
    client = run_client(programs, work, ["grid bay", *get_all()[:-1]])
    check(len(re.findall(" transf", client.messages())) == len(RESULTS),
          f"results were lost:\n{client.messages()}")
    check_same(work, reference, "results that were asked for just before exit")


def exit_with_lines(programs, scratch, lines, reference):
    """Lines that were submitted just before exit are in the grid, in their order, and so is what was
    asked for beside them in its files."""
    work = scratch / "lines"
    write_filelist(work, lines)
    bounds = re.search(r"set bounding box to (.*)",
                       (scratch / "reference" / "stderr").read_text()).group(1)
    names = [f"{kind}.txt" for kind in ("resolution", "depth", "hypotheses")]
    client = run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt",
                                         f"commit 1 {len(lines)}", f"set bbox {bounds}",
                                         f"get resolution {names[0]}",
                                         f"get depth full {names[1]}",
                                         f"get hypotheses low {names[2]}"])
    check(len(re.findall(" completed ", client.messages())) == len(lines),
          f"lines were not told of:\n{client.messages()}")
    for name in names:
        check(f'"{name}") transf' in client.messages() and content(work / name).endswith(b"\n"),
              f"{name} was lost:\n{client.messages()}")
    check([name for name, _ in lines_in_store(work / "bay")] == [str(line) for line in lines],
          "lines were lost")
    run_client(programs, work, ["grid bay", "refine", *get_all()])
    check_same(work, reference, "lines that were submitted just before exit")


def interrupt(programs, folder, lines, reference, reference_lines, phase, delay_s):
    """Ctrl-C at one moment; gives how long the program took to end, and whether it was at work."""
    write_filelist(folder, lines)
    client = Client(programs, folder, [*whole_run("grid bay 16 0.5", len(lines)), "exit"],
                    prepare=ignore_nothing)
    client.wait_for(starts(phase, len(lines)))
    time.sleep(delay_s)
    began = time.monotonic()
    status = client.kill(signal.SIGINT)
    took_s = time.monotonic() - began
    check(status in (0, -signal.SIGINT), f"Ctrl-C in {phase} ended the program with {status}")
    check_files(folder, client, reference)
    completed = len(re.findall("^line .* completed", client.messages(), re.MULTILINE))
    if (folder / "bay").exists():
        check_grid(folder, lines, completed, reference_lines)
        run_client(programs, folder, ["grid bay"])
    else:
        check(completed == 0, "lines were completed, and there is no grid")
    return took_s, status != 0


def run(programs, scratch, random):
    lines = simulate(programs, scratch / "survey", seafloor="mix", lines=8, line_length=250,
                     depth=25, beams=128, ping_rate=5, spikes=0.01,
                     seed=random.randrange(1 << 30))
    took_s = durations(programs, scratch / "reference", lines)
    reference = digests(scratch / "reference")
    reference_lines = lines_in_store(scratch / "reference" / "bay")
    rounds = 20 if LONG else 2
    for _ in range(rounds):
        exit_with_results(programs, scratch, reference)
        exit_with_lines(programs, scratch, lines, reference)
        shutil.rmtree(scratch / "results")
        shutil.rmtree(scratch / "lines")
    figure(f"clean end: {rounds} times exit with results outstanding and {rounds} times with lines "
           "outstanding lost nothing")

    count = 40 if LONG else 4
    slowest_s = ended = 0
    for number in range(count):
        phase = PHASES[number % len(PHASES)]
        folder = scratch / f"interrupt{number}"
        for moment_s in earlier_moments(random.uniform(0, took_s[phase])):
            needed_s, by_signal = interrupt(programs, folder, lines, reference, reference_lines,
                                            phase, moment_s)
            slowest_s = max(slowest_s, needed_s)
            shutil.rmtree(folder)
            if by_signal:
                ended += 1
                break
    # Far less than a line or a refinement takes; a machine under load may be slow to wake it.
    check(slowest_s < 5, f"Ctrl-C took {slowest_s:.2f} s")
    figure(f"clean end: Ctrl-C ended {ended} of {count} runs, each within {slowest_s * 1000:.0f} ms, "
           "and left the grid whole")
    check_enough(ended, count, "ended by Ctrl-C")


main("clean_end", run)
