#!/usr/bin/env python3
"""Files that may not grow any more, and stores that are cut or overwritten: each is told with its
cause, what was whole stays whole, and nothing crashes."""

import re
import resource
import shutil

from harness import (LONG, RESULTS, Client, check, content, digests, figure, get_all,
                     ignore_nothing, lines_in_store, main, run_client, simulate, store_rows,
                     write_filelist)

FULL = re.compile(r"disk is full|disk full|No space left on device|File too large|free space")


def survey(programs, scratch, random):
    return simulate(programs, scratch / "lines", seafloor="mix", lines=6, line_length=200,
                    depth=25, beams=96, ping_rate=5, spikes=0.01, seed=random.randrange(1 << 30))


def reference_of(programs, scratch, random):
    """A survey, and the digests of its results."""
    lines = survey(programs, scratch, random)
    write_filelist(scratch / "reference", lines)
    run_client(programs, scratch / "reference",
               ["grid bay 16 0.5", "filelist lines.txt", f"commit 1 {len(lines)}", "refine",
                *get_all()])
    return lines, digests(scratch / "reference")


def limited_files(programs, scratch, lines, limit):
    """No file may grow over the limit, as on a file system with small files; the signal that comes
    with that is left as it is."""

    def prepare():
        ignore_nothing()
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

    work = scratch / f"limit{limit}"
    write_filelist(work, lines)
    client = run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt",
                                         f"commit 1 {len(lines)}", "refine", *get_all()],
                        prepare=prepare, trouble=True)
    faults = len(FULL.findall(client.told()))
    check(faults > 0, f"a limit of {limit} bytes a file was not told:\n{client.told()}")
    if (work / "bay").exists():
        held = lines_in_store(work / "bay")
        failed = client.messages().count("failed to complete")
        check(len(held) + failed == len(lines), f"{len(held)} lines held and {failed} failed")
    return faults


def damage(path, random):
    """Cuts or overwrites the file at random; gives what was done."""
    size = path.stat().st_size
    kind = random.choice(["cut", "bytes", "bit", "zeros", "page"])
    place = random.randrange(size)
    with open(path, "r+b") as file:
        if kind == "cut":
            file.truncate(place)
        elif kind == "bytes":
            file.seek(place)
            file.write(random.randbytes(random.choice([1, 16, 5000])))
        elif kind == "bit":
            file.seek(place)
            byte = file.read(1)[0] ^ (1 << random.randrange(8))
            file.seek(place)
            file.write(bytes([byte]))
        elif kind == "zeros":
            file.seek(place)
            file.write(bytes(random.choice([1, 512, 40000])))
        else:
            pages = size // 32768
            file.seek(random.randrange(pages) * 32768)
            page = file.read(32768)
            file.seek(place // 32768 * 32768)
            file.write(page)
    return f"{kind} at byte {place} of {size} of {path.name}"


def bit_rot(programs, scratch, random, rounds):
    """A bit that flips in a packed block of soundings is found when the block is read, and told with
    the cell and the line that it belongs to."""
    good = scratch / "whole" / "bay"
    data = (good / "grid.sqlite").read_bytes()
    # Large blocks go on on pages of their own: the beginning is where it can be searched. States of
    # cells hold copies of soundings; those that stand nowhere else are of a block.
    blocks = [bytes(row[0])[:200] for row in store_rows(good, "SELECT data FROM soundings")]
    blocks = [block for block in blocks if data.count(block) == 1]
    for number in range(rounds):
        work = scratch / f"rot{number}"
        shutil.copytree(good, work / "bay")
        block = random.choice(blocks)
        place = data.index(block) + random.randrange(len(block))
        with open(work / "bay" / "grid.sqlite", "r+b") as file:
            file.seek(place)
            file.write(bytes([data[place] ^ (1 << random.randrange(8))]))
        client = run_client(programs, work, ["grid bay", "refine"], trouble=True,
                            Refinement={"SoundingsPerNode": 6})
        check(re.search(r"damaged.*soundings of cell \(row -?\d+, column -?\d+\) from line \d+ "
                        r"\(.*\.gsf\)", client.told()),
              f"a bit flipped at byte {place} was not told by cell and line:\n{client.told()}")
        shutil.rmtree(work)


def damaged_store(programs, scratch, lines, random, rounds):
    """Results of a damaged grid are right or refused; another grid beside it does not suffer."""
    good = scratch / "whole"
    write_filelist(good, lines)
    run_client(programs, good, ["grid bay 16 0.5", "filelist lines.txt",
                                f"commit 1 {len(lines)}", "refine", *get_all(),
                                "grid cove 16 0.5", "filelist lines.txt", "commit 1 1", "refine",
                                "set bbox current", "get depth full cove.txt", "synch"])
    cove = content(good / "cove.txt")
    other = {"SoundingsPerNode": 6}
    refined = scratch / "refined"
    shutil.copytree(good / "bay", refined / "bay")
    run_client(programs, refined, ["grid bay", *get_all(), "refine", "get depth full again.txt",
                                   "synch"], Refinement=other)
    again = content(refined / "again.txt")
    check(again != content(good / "depth_full.txt"), "the other settings change nothing")
    told_rounds = 0
    for number in range(rounds):
        work = scratch / f"damage{number}"
        shutil.copytree(good / "bay", work / "bay")
        shutil.copytree(good / "cove", work / "cove")
        bounds = re.search(r"set bounding box to (.*)", (good / "stderr").read_text()).group(1)
        done = damage(work / "bay" / "grid.sqlite", random)
        write_filelist(work, lines[:1])
        client = Client(programs, work, [
            "grid bay", f"set bbox {bounds}", *get_all()[1:], "filelist lines.txt", "commit 1 1",
            "refine", "get depth full again.txt", "synch", "grid cove", "set bbox current",
            "get depth full cove.txt", "synch", "exit"], Refinement=other)
        status = client.wait()
        check(status == 0, f"{done}: the client ended with {status}; it told:\n{client.told()}")
        told = re.search("damaged|disk image is malformed|there is no grid|format version|"
                         "not of a grid|no SQLite database", client.told())
        missing = 0
        refined_anew = "grid refined OK" in client.told()
        check(told or refined_anew, f"{done}: no refinement, and no cause:\n{client.told()}")
        if refined_anew and (work / "again.txt").exists():
            check(content(work / "again.txt") == again, f"{done}: the refinement is wrong")
        for name in RESULTS:
            if (work / name).exists():
                check(content(work / name) == content(refined / name), f"{done}: {name} is wrong")
            else:
                missing += 1
        check(told or missing == 0, f"{done}: {missing} results are missing, and no cause was "
                                    f"told:\n{client.told()}")
        check((work / "cove.txt").exists() and content(work / "cove.txt") == cove,
              f"{done}: the other grid suffered")
        told_rounds += told is not None
        shutil.rmtree(work)
    return told_rounds


def run(programs, scratch, random):
    lines, _ = reference_of(programs, scratch, random)

    limits = [20_000, 100_000, 400_000, 1_500_000] if LONG else [20_000, 400_000]
    faults = sum(limited_files(programs, scratch, lines, limit) for limit in limits)
    figure(f"disk: {faults} writes beyond a limit of the file's size, each told")

    rounds = 300 if LONG else 12
    told = damaged_store(programs, scratch, lines, random, rounds)
    figure(f"disk: {rounds} damaged stores, of which {told} were told; in the others no page in "
           f"use was hit, and their results were right")
    check(2 * told > rounds, f"of {rounds} damaged stores only {told} were told of, and nearly "
                             "every page is in use")
    rounds = 50 if LONG else 4
    bit_rot(programs, scratch, random, rounds)
    figure(f"disk: {rounds} bits flipped in blocks of soundings, each told by cell and line")


if __name__ == "__main__":
    main("disk", run)
