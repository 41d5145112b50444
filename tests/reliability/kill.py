#!/usr/bin/env python3
"""A client that is killed at any moment leaves a grid that loads and holds a prefix of the lines
submitted, each whole, with every line among them whose completion was told; submitting all of them
again gives the results of a run that nobody disturbed, byte by byte."""

import re
import shutil
import signal
import time

from harness import (LONG, Client, changed_cells, check, check_enough, check_same, digests,
                     earlier_moments, figure, get_all, lines_in_store, main, run_client, simulate,
                     write_filelist)

COMPLETED = re.compile(r"^line (\d+) \(.*\) completed", re.MULTILINE)
PHASES = ["commit", "refine", "synch", "get"]
PHASES_IN_ORDER = ["commit", "synch", "refine", "get"]


def whole_run(grid, count):
    return [grid, "filelist lines.txt", f"commit 1 {count}", "synch", "refine", *get_all()]


def starts(phase, count):
    """Whether a client has come to the phase."""
    if phase == "commit":
        return lambda client: "lines committed" in client.told()
    if phase == "synch":
        return lambda client: len(re.findall("^line ", client.messages(), re.M)) >= count - 1
    if phase == "refine":
        return lambda client: "sending refine" in client.told()
    return lambda client: "grid refined" in client.told()


def durations(programs, folder, lines):
    """How long each phase takes when nobody disturbs, in seconds; leaves the reference there."""
    write_filelist(folder, lines)
    client = Client(programs, folder, [*whole_run("grid bay 16 0.5", len(lines)), "exit"])
    times = []
    for phase in PHASES_IN_ORDER:
        client.wait_for(starts(phase, len(lines)))
        times.append(time.monotonic())
    client.wait()
    times.append(time.monotonic())
    return dict(zip(PHASES_IN_ORDER, (b - a for a, b in zip(times, times[1:]))))


def check_grid(folder, submitted, reported, reference_lines):
    """The grid on disc after a sudden end; gives how many lines it holds."""
    held = lines_in_store(folder / "bay")
    check(held == reference_lines[:len(held)],
          f"the grid in {folder} holds {held}, no prefix of {submitted}")
    check(len(held) >= reported, f"the grid in {folder} lost lines that were reported complete: "
                                 f"it holds {len(held)} of {reported}")
    return len(held)


def check_files(folder, client, reference):
    """Result files that were told of are those of the reference."""
    told = re.findall(r'output to "(.*)"\) transf', client.messages())
    if told:
        check_same(folder, {name: reference[name] for name in told}, "results that were told of")


def killed_client(programs, folder, lines, reference, phase, delay_s):
    """A client that was killed while at work, in a folder that holds what it left; None where every
    one ended by itself, the last of which did what was asked for."""
    before = folder.with_name(folder.name + ".before")
    shutil.copytree(folder, before)
    client = None
    for moment_s in earlier_moments(delay_s):
        shutil.rmtree(folder)
        shutil.copytree(before, folder)
        grid = "grid bay" if (folder / "bay").exists() else "grid bay 16 0.5"
        client = Client(programs, folder, [*whole_run(grid, len(lines)), "exit"])
        client.wait_for(starts(phase, len(lines)))
        time.sleep(moment_s)
        status = client.kill()
        if status == -signal.SIGKILL:
            break
        check(status == 0, f"the client ended with {status} by itself")
        check_files(folder, client, reference)
        client = None
    shutil.rmtree(before)
    return client


def check_what_is_left(programs, folder, lines, client, held, reference_lines):
    """The grid after a kill, which held so many lines before; gives how many it holds."""
    if not (folder / "bay").exists():
        check(held == 0 and "grid construction complete" not in client.told(), "the grid is gone")
        return 0
    completed = {int(n) for n in COMPLETED.findall(client.messages())}
    # Lines held since an earlier run are refused, but keep their numbers in the list.
    held = check_grid(folder, lines, max([held, *(n + 1 for n in completed)]), reference_lines)
    if "grid refined OK" in client.told():
        check(changed_cells(folder / "bay") == 0, "a refinement that was told is lost")
    again = run_client(programs, folder, ["grid bay", "show grid"])
    check(f"lines: {held}\n" in again.told(), f"the grid in {folder} does not load")
    return held


def disturbed_run(programs, folder, lines, reference, phase, delay_s, kills, random):
    """One grid whose client is killed `kills` times before it is let alone; gives how many of the
    kills met a client at work."""
    reference, reference_lines = reference
    write_filelist(folder, lines)
    held = 0
    survived = 0
    for number in range(kills):
        here = phase if number == 0 else random.choice(PHASES)
        wait_s = delay_s if number == 0 else random.uniform(0, 2 * delay_s)
        client = killed_client(programs, folder, lines, reference, here, wait_s)
        if client is None:
            held = len(lines)
            break
        survived += 1
        check_files(folder, client, reference)
        held = check_what_is_left(programs, folder, lines, client, held, reference_lines)
    grid = "grid bay" if (folder / "bay").exists() else "grid bay 16 0.5"
    client = run_client(programs, folder, whole_run(grid, len(lines)), trouble=True)
    refused = client.told().count("which the grid holds already")
    check(refused == held, f"{refused} lines were refused as duplicates, and the grid held {held}")
    return survived


def run(programs, scratch, random):
    runs = 60 if LONG else 5
    lines = simulate(programs, scratch / "lines", seafloor="mix", lines=8, line_length=250,
                     depth=25, beams=128, ping_rate=5, spikes=0.01, bursts=1,
                     seed=random.randrange(1 << 30))
    took_s = durations(programs, scratch / "reference", lines)
    reference = digests(scratch / "reference")
    reference_lines = lines_in_store(scratch / "reference" / "bay")
    check([name for name, _ in reference_lines] == [str(line) for line in lines],
          "the undisturbed run lost lines")
    survived = {phase: 0 for phase in PHASES}
    wanted = 0
    for number in range(runs):
        phase = PHASES[number % len(PHASES)]
        delay_s = random.uniform(0, took_s[phase])
        kills = random.choice([1, 1, 2])
        wanted += kills
        folder = scratch / f"run{number}"
        what = f"run {number}, killed in {phase} after {delay_s * 1000:.1f} ms"
        try:
            survived[phase] += disturbed_run(programs, folder, lines,
                                             (reference, reference_lines), phase, delay_s, kills,
                                             random)
            check_same(folder, reference, "results after all")
        except Exception as failure:
            raise type(failure)(f"{what}: {failure}") from failure
        shutil.rmtree(folder)
    text = ", ".join(f"{count} begun in {phase}" for phase, count in survived.items())
    figure(f"kill: {sum(survived.values())} kills survived in {runs} runs ({text})")
    check_enough(sum(survived.values()), wanted, "killed")


if __name__ == "__main__":
    main("kill", run)
