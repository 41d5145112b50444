#!/usr/bin/env python3
"""Discs that are full or cannot be written, and stores that are cut or overwritten: each is told with
its cause, what was whole stays whole, and nothing crashes."""

import os
import re
import resource
import shutil
import subprocess
import sys

from harness import (LONG, RESULTS, SKIPPED, Client, Failed, check, check_same, content, digests,
                     figure, get_all, ignore_nothing, lines_in_store, main, run_client, simulate,
                     store_rows, write_filelist)

INSIDE = "QUARRO_INSIDE_NAMESPACE"
FULL = re.compile(r"disk is full|disk full|No space left on device|File too large|free space")
READ_ONLY = re.compile(r"Read-only file system")


def enter_namespace():
    """Goes on in a user and mount namespace of its own, where file systems can be mounted; False
    where that is forbidden."""
    if os.environ.get(INSIDE):
        return True
    tried = subprocess.run(["unshare", "-Urm", "true"], stderr=subprocess.DEVNULL, check=False)
    if tried.returncode != 0:
        return False
    os.environ[INSIDE] = "1"
    os.execvp("unshare", ["unshare", "-Urm", sys.executable, *sys.argv])


def mount(*words):
    subprocess.run(["mount", *words], check=True)


class SmallDisc:
    """A tmpfs which a file fills up to some free bytes."""

    def __init__(self, folder, mebibytes):
        self.folder = folder
        folder.mkdir(parents=True)
        mount("-t", "tmpfs", "-o", f"size={mebibytes}m", "none", str(folder))

    def leave(self, free_bytes):
        self.empty()
        status = os.statvfs(self.folder)
        fill = max(0, status.f_bavail * status.f_bsize - free_bytes)
        with open(self.folder / "filler", "wb") as filler:
            os.posix_fallocate(filler.fileno(), 0, fill) if fill else None

    def empty(self):
        (self.folder / "filler").unlink(missing_ok=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        subprocess.run(["umount", str(self.folder)], check=True)


def survey(programs, scratch, random):
    return simulate(programs, scratch / "lines", seafloor="mix", lines=6, line_length=200,
                    depth=25, beams=96, ping_rate=5, spikes=0.01, seed=random.randrange(1 << 30))


def with_little_room(programs, work, disc, leave, commands, **options):
    """Opens the grid, leaves so many bytes on the disc, and gives the commands; the client."""
    client = Client(programs, work, ["grid bay", "filelist lines.txt"], typing=True, **options)
    check(client.wait_for(lambda told: "loaded" in told.told()), "the client ended early")
    disc.leave(leave)
    client.type("\n".join([*commands, "exit"]) + "\n")
    status = client.wait()
    disc.empty()
    check(status == 0, f"the client ended with {status} on a full disc; it told:\n{client.told()}")
    return client


def bytes_of(folder):
    return sum(path.stat().st_size for path in folder.iterdir())


def full_while_committing(programs, scratch, lines, reference, part, disc):
    """Lines for which there is no room fail; earlier ones stay, and later all come in."""
    work = scratch / "commit"
    options = {"WorkingDirectory": disc.folder}
    write_filelist(work, lines)
    run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt", "commit 1 2"], **options)
    needed = 2.5 * bytes_of(disc.folder / "bay")
    write_filelist(work, lines[2:])
    client = with_little_room(programs, work, disc, int(part * needed),
                              [f"commit 1 {len(lines) - 2}", "synch"], **options)
    failed = client.messages().count("failed to complete")
    causes = sum(line.startswith("line ") and FULL.search(line) is not None
                 for line in client.told().splitlines())
    check(failed == causes, f"{failed} lines failed, and {causes} causes were told:\n"
                            f"{client.told()}")
    held = lines_in_store(disc.folder / "bay")
    names = [name for name, _ in held]
    check(len(held) == len(lines) - failed, f"{failed} lines failed, and {len(held)} are held")
    # Later lines may have found room that an earlier one did not; the grid is that of the lines in
    # the order in which they came in.
    rest = [str(line) for line in lines if str(line) not in names]
    write_filelist(work, rest)
    run_client(programs, work, ["grid bay", "filelist lines.txt",
                                *([f"commit 1 {len(rest)}"] if rest else []), "refine",
                                *get_all()], **options)
    if names != [str(line) for line in lines[:len(names)]]:
        anew = scratch / "anew"
        write_filelist(anew, names + rest)
        run_client(programs, anew, ["grid bay 16 0.5", "filelist lines.txt",
                                    f"commit 1 {len(lines)}", "refine", *get_all()])
        reference = digests(anew)
        shutil.rmtree(anew)
    check_same(work, reference, f"a disc that was full at {part:.0%} while lines were committed")
    return failed


def full_while_refining(programs, scratch, lines, reference, part, disc):
    """A refinement without room fails and leaves the grid as it was."""
    work = scratch / "refine"
    options = {"WorkingDirectory": disc.folder}
    write_filelist(work, lines)
    run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt",
                                f"commit 1 {len(lines)}"], **options)
    needed = 0.5 * bytes_of(disc.folder / "bay")
    client = with_little_room(programs, work, disc, int(part * needed), ["refine", "show grid"],
                              **options)
    refused = "failed to refine grid" in client.told()
    check(refused == bool(FULL.search(client.told())), f"a full disc was not told:\n"
                                                       f"{client.told()}")
    check(not refused or "refined: 0 cells" in client.told(), f"a part of it is there:\n"
                                                               f"{client.told()}")
    run_client(programs, work, ["grid bay", "refine", *get_all()], **options)
    check_same(work, reference, f"a disc that was full at {part:.0%} while refining")
    return refused


def full_while_writing(programs, scratch, lines, reference, leave, disc):
    """Result files without room are told, and do not stand under their names."""
    work = scratch / "write"
    if not (work / "bay").exists():
        write_filelist(work, lines)
        run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt",
                                    f"commit 1 {len(lines)}", "refine"])
    disc.leave(leave)
    faults = 0
    for name in RESULTS:
        kind = {"resolution": "resolution"}.get(name.split(".")[0]) or " ".join(
            name.split(".")[0].split("_"))
        if name.endswith(".bag"):
            kind = f"depth {name.split('.')[0]} bag"
        path = disc.folder / name
        client = run_client(programs, work, ["grid bay", "set bbox current",
                                             "set projection utm 31", f"get {kind} {path}",
                                             "synch"], trouble=True)
        told = FULL.search(client.told()) is not None
        whole = path.exists() and content(path) == content(work.parent / "reference" / name)
        check(whole != told, f"{name} with {leave} bytes left is "
                             f"{'whole' if whole else 'not whole'}, and it was told:\n"
                             f"{client.told()}\n{client.messages()}")
        check(whole or not path.exists(), f"a part of {name} stands under its name")
        faults += told
        for left in disc.folder.glob("*.*"):
            left.unlink()
    return faults


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


def read_only(programs, scratch, lines):
    """A directory that cannot be written: no grid is made, none is opened, no BAG is written."""
    work = scratch / "readonly"
    write_filelist(work, lines)
    made = work / "grids"
    made.mkdir()
    run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt",
                                f"commit 1 {len(lines)}", "refine"], WorkingDirectory=made)
    mount("--bind", str(made), str(made))
    try:
        mount("-o", "remount,ro,bind", str(made))
        faults = 0
        for command in ("grid bay", "grid cove 16 0.5", "grid bay 16 0.5"):
            client = run_client(programs, work, [command], trouble=True, WorkingDirectory=made)
            check(READ_ONLY.search(client.told()), f"\"{command}\" did not tell of a read-only "
                                                   f"directory:\n{client.told()}")
            faults += 1
    finally:
        subprocess.run(["umount", str(made)], check=True)
    client = run_client(programs, work, ["grid bay", "show grid"], WorkingDirectory=made)
    check(f"lines: {len(lines)}\n" in client.told(), "the grid was harmed")
    check(sorted(path.name for path in made.iterdir()) == ["bay"], "something was left behind")
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
    lines = survey(programs, scratch, random)
    write_filelist(scratch / "reference", lines)
    run_client(programs, scratch / "reference",
               ["grid bay 16 0.5", "filelist lines.txt", f"commit 1 {len(lines)}", "refine",
                *get_all()])
    reference = digests(scratch / "reference")

    limits = [20_000, 100_000, 400_000, 1_500_000] if LONG else [20_000, 400_000]
    faults = sum(limited_files(programs, scratch, lines, limit) for limit in limits)
    figure(f"disk: {faults} writes beyond a limit of the file's size, each told")

    if MOUNTS:
        with SmallDisc(scratch / "disc", 96) as disc:
            full_discs(programs, scratch, lines, reference, random, disc)
        figure(f"disk: {read_only(programs, scratch, lines)} requests to a read-only directory, "
               f"each told")
    else:
        figure("disk: SKIPPED: full and read-only file systems, since this machine forbids user "
               "namespaces (unshare -Urm)")

    rounds = 300 if LONG else 12
    told = damaged_store(programs, scratch, lines, random, rounds)
    figure(f"disk: {rounds} damaged stores, of which {told} were told; in the others no page in "
           f"use was hit, and their results were right")
    rounds = 50 if LONG else 4
    bit_rot(programs, scratch, random, rounds)
    figure(f"disk: {rounds} bits flipped in blocks of soundings, each told by cell and line")


def full_discs(programs, scratch, lines, reference, random, disc):
    parts = [0.0, *(random.random() for _ in range(11 if LONG else 2))]
    failed = 0
    for part in parts:
        failed += full_while_committing(programs, scratch, lines, reference, part, disc)
        shutil.rmtree(disc.folder / "bay")
    figure(f"disk: {failed} lines failed on {len(parts)} full discs; the grids went on and were "
           f"finished later with the right results")
    refused = 0
    for part in parts:
        refused += full_while_refining(programs, scratch, lines, reference, part, disc)
        shutil.rmtree(disc.folder / "bay")
    figure(f"disk: {refused} of {len(parts)} refinements failed on a full disc; all were finished "
           f"later with the right results")
    written = sum(full_while_writing(programs, scratch, lines, reference, int(part * 500_000),
                                     disc) for part in parts)
    figure(f"disk: {written} result files failed on a full disc, each told")


MOUNTS = enter_namespace()
main("disk", run)
