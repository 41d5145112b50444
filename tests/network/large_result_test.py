#!/usr/bin/env python3
"""A result much larger than the memory that the engine may take for it comes over the network whole.

usage: large_result_test.py CLIENT SERVER SIMULATE SOURCE [--long]

A box far beyond the survey makes a large result of a small grid: about 50 MB on the wire, in the long form more than
500 MB. What the client writes is compared, byte by byte, with what it writes with the engine in process."""

import filecmp
import pathlib
import re
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import LONG, SANITIZED, Program, check, report, run_tests

CELL_M = 16
RESOLUTION_RECORD_BYTES = 120  # of a cell on the wire
DEPTH_RECORD_BYTES = 28
MOST_GROWTH_MIB = 128


def box_of(cells):
    """A box of about so many cells around the survey, whose lines lie near (562300, 6206500)."""
    half = int(cells ** 0.5) * CELL_M // 2
    return f"{562304 - half} {6206496 - half} {562304 + half} {6206496 + half}"


def large_result(place, what, record_bytes, wanted_mb):
    place.simulate_lines(3, "--line-length", 120, "--depth", 20, "--beams", 64, "--ping-rate", 3, "--seed", 7)
    box = box_of(wanted_mb * 1e6 / record_bytes)
    (place.folder / "grids").mkdir()
    place.write_parameters({}, {"WorkingDirectory": "grids"})
    (place.folder / "local").mkdir()
    place.write_parameters({}, {"WorkingDirectory": "local"}, place.folder / "local.xml")
    script = ["broadcast", "attach 1", "grid bay 16 1", "filelist lines.txt", "commit 1 3", "synch", "refine"]
    with place.start_server() as server, place.start_client(options=("-a", "messages.txt")) as console:
        console.attach()
        console.type(*script[2:])
        console.expect("grid refined OK")
        before = server.memory_kib()
        begin = time.monotonic()
        console.do(f"get {what} {box} network.txt", "commited to server", 120)
        console.type("synch")
        most = before
        transferred = None
        while transferred is None:
            most = max(most, server.memory_kib())
            check(SANITIZED or time.monotonic() - begin < 600, "the result did not come within ten minutes")
            time.sleep(0.02)
            text = (place.folder / "messages.txt").read_text()
            check("failed" not in text, text)
            transferred = re.search(r"^result 0 .* transfer", text, re.M)
        took = time.monotonic() - begin
        console.expect("grid synchronised OK")
        console.leave()
        server.end()
    growth = (most - before) / 1024
    check(SANITIZED or growth < MOST_GROWTH_MIB, f"the server's anonymous memory grew by {growth:.0f} MiB")
    (place.folder / "commands.txt").write_text("\n".join([*script, f"get {what} {box} local.txt", "synch", "exit", ""]))
    with Program([place.client, "--local", "-f", "local.xml", "-s", "commands.txt"], place.folder) as local:
        local.wait(600)
    check(filecmp.cmp(place.folder / "network.txt", place.folder / "local.txt", shallow=False),
          "over the network the result is another than in process")
    size = (place.folder / "network.txt").stat().st_size
    report(f"{what}: about {wanted_mb} MB in {took:.1f} s with writing the file of {size / 1e6:.0f} MB; the server's "
          f"anonymous memory grew by {growth:.0f} MiB")


def a_large_resolution_map(place):
    large_result(place, "resolution", RESOLUTION_RECORD_BYTES, 540 if LONG else 50)


def a_large_depth_map(place):
    large_result(place, "depth low", DEPTH_RECORD_BYTES, 1500 if LONG else 50)


TESTS = [a_large_resolution_map, a_large_depth_map]

if __name__ == "__main__":
    run_tests(TESTS, __doc__)
