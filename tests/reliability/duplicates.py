#!/usr/bin/env python3
"""A line whose bytes the grid holds is refused with a message that names the first, under whatever
name it comes and whatever has happened since, unless a parameter allows it."""

import re
import shutil

from harness import check, figure, lines_in_store, main, run_client, simulate, write_filelist


def check_refused(client, refused, number, first):
    text = (f'"{refused}" failed: its bytes are those of line {number} ("{first}"), which the grid '
            'holds already; to take it again, set AllowDuplicateLines')
    check(text in client.told(), f"no message of {refused} and {first}:\n{client.told()}")
    check(len(re.findall("^line .* failed to complete", client.messages(), re.MULTILINE)) == 1,
          f"not one line was refused:\n{client.messages()}")


def run(programs, scratch, random):
    lines = simulate(programs, scratch / "lines", lines=3, line_length=60, depth=20, beams=32,
                     ping_rate=3, seed=random.randrange(1 << 30))
    copy = scratch / "lines" / "copy of the second.gsf"
    shutil.copy(lines[1], copy)
    work = scratch / "work"
    write_filelist(work, [*lines, lines[0]])
    check_refused(run_client(programs, work, ["grid bay 16 1", "filelist lines.txt", "commit 1 4",
                                              "refine"], trouble=True), lines[0], 1, lines[0])
    write_filelist(work, [copy])
    check_refused(run_client(programs, work, ["grid bay", "filelist lines.txt", "commit 1 1"],
                             trouble=True), copy, 2, lines[1])
    held = lines_in_store(work / "bay")
    check([name for name, _ in held] == [str(line) for line in lines], f"the grid holds {held}")

    run_client(programs, work, ["grid bay", "filelist lines.txt", "commit 1 1"],
               AllowDuplicateLines="true")
    again = lines_in_store(work / "bay")
    check(again == [*held, (str(copy), held[1][1])], f"allowed, the grid holds {again}")
    figure("duplicates: 2 refused with the first named, 1 taken where a parameter allows it")


main("duplicates", run)
