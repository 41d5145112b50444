#!/usr/bin/env python3
"""Discs that are full or cannot be written: each is told with its cause, what was whole stays whole,
and what failed is done again with room. Needs file systems of its own, so it is skipped where that
is forbidden."""

import os
import re
import shutil
import subprocess
import sys
import tempfile

from disk import FULL, reference_of
from harness import (LONG, RESULTS, SKIPPED, Client, check, check_same, content, digests, figure,
                     get_all, lines_in_store, main, run_client, write_filelist)

INSIDE = "QUARRO_INSIDE_NAMESPACE"
READ_ONLY = re.compile(r"Read-only file system")


def enter_namespace():
    """Goes on in a user and mount namespace of its own, where file systems can be mounted; False
    where that is forbidden."""
    if os.environ.get(INSIDE):
        return True
    with tempfile.TemporaryDirectory(prefix="quarro_probe_") as folder:
        tried = subprocess.run(["unshare", "-Urm", "mount", "-t", "tmpfs", "none", folder],
                               stderr=subprocess.DEVNULL, check=False)
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
    check(part > 0 or failed == len(lines) - 2, f"no room at all, and only {failed} of "
                                                f"{len(lines) - 2} lines failed:\n{client.told()}")
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
    check(part > 0 or refused, f"no room at all, and no refusal:\n{client.told()}")
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
    check(leave > 0 or faults == len(RESULTS), f"no room at all, and only {faults} of "
                                               f"{len(RESULTS)} results failed")
    return faults


def results_into(programs, work, folder):
    """Asks for a BAG and a text in a folder that cannot be written: the BAG is refused by name, and
    neither leaves a file. A text result whose path cannot be opened is let go of without a word."""
    client = run_client(programs, work, [
        "grid bay", "set bbox current", "set projection utm 31", f"get depth full {folder}/full.txt",
        f"get depth full bag {folder}/full.bag", "synch"], trouble=True)
    told = client.told() + client.messages()
    check(f'to "{folder}/full.bag" because BAG generation failed' in told
          and re.search(f"BAG .*failed: .*{re.escape(str(folder))}", told),
          f"a BAG in a read-only directory was not refused by its name:\n{told}")
    check(not list(folder.glob("full.*")), f"a result stands in {folder}")


def read_only(programs, scratch, lines):
    """A directory that cannot be written: no grid is made there, none is opened, no result written;
    gives how many requests were refused."""
    work = scratch / "readonly"
    write_filelist(work, lines)
    made = work / "grids"
    made.mkdir()
    run_client(programs, work, ["grid bay 16 0.5", "filelist lines.txt",
                                f"commit 1 {len(lines)}", "refine"], WorkingDirectory=made)
    shutil.copytree(made / "bay", work / "bay")
    mount("--bind", str(made), str(made))
    try:
        mount("-o", "remount,ro,bind", str(made))
        faults = 0
        for command in ("grid bay", "grid cove 16 0.5", "grid bay 16 0.5"):
            client = run_client(programs, work, [command], trouble=True, WorkingDirectory=made)
            check(READ_ONLY.search(client.told()), f"\"{command}\" did not tell of a read-only "
                                                   f"directory:\n{client.told()}")
            faults += 1
        results_into(programs, work, made)
        faults += 1
    finally:
        subprocess.run(["umount", str(made)], check=True)
    client = run_client(programs, work, ["grid bay", "show grid"], WorkingDirectory=made)
    check(f"lines: {len(lines)}\n" in client.told(), "the grid was harmed")
    check(sorted(path.name for path in made.iterdir()) == ["bay"], "something was left behind")
    return faults


def full_discs(programs, scratch, lines, reference, random, disc):
    parts = [0.0, *(random.random() for _ in range(11 if LONG else 2))]

    def on_each(attempt):
        faults = 0
        for part in parts:
            faults += attempt(programs, scratch, lines, reference, part, disc)
            shutil.rmtree(disc.folder / "bay")
        return faults

    failed = on_each(full_while_committing)
    figure(f"full disk: {failed} lines failed on {len(parts)} full discs; the grids went on and "
           f"were finished later with the right results")
    refused = on_each(full_while_refining)
    figure(f"full disk: {refused} of {len(parts)} refinements failed on a full disc; all were "
           f"finished later with the right results")
    written = sum(full_while_writing(programs, scratch, lines, reference, int(part * 500_000),
                                     disc) for part in parts)
    figure(f"full disk: {written} result files failed on a full disc, each told")


def run(programs, scratch, random):
    if not MOUNTS:
        print("full_disk: SKIPPED: this machine forbids a mount in a user namespace of one's own "
              "(unshare -Urm mount -t tmpfs none DIRECTORY)")
        return SKIPPED
    lines, reference = reference_of(programs, scratch, random)
    with SmallDisc(scratch / "disc", 96) as disc:
        full_discs(programs, scratch, lines, reference, random, disc)
    figure(f"full disk: {read_only(programs, scratch, lines)} requests to a read-only directory, "
           "each told")
    return 0


MOUNTS = enter_namespace()
main("full_disk", run)
