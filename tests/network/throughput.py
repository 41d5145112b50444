#!/usr/bin/env python3
"""How fast the network front end is beside the one in process, on the same survey and on this machine.

usage: throughput.py CLIENT SERVER SIMULATE SOURCE [--lines N] [--megabytes N]

Prints, for either front end, soundings a second of line commits (with the barrier that makes them durable), and
megabytes a second of a result: from the request to the call-back that has the whole result and has written the few
cells that hold data."""

import pathlib
import re
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import Place, check, programs_of, wait_for

CELL_M = 16
DEPTH_RECORD_BYTES = 28


def option(name, default):
    return int(sys.argv[sys.argv.index(name) + 1]) if name in sys.argv else default


def measure(place, console, lines, megabytes):
    """Seconds for the lines, seconds for the result, and soundings."""
    console.attach()
    console.do("grid bay 16 1", "grid construction complete")
    console.do("filelist lines.txt", "loaded")
    begin = time.monotonic()
    console.type(f"commit 1 {lines}", "synch")
    console.expect("grid synchronised OK", 600)
    commit_s = time.monotonic() - begin
    console.do("show grid", "^name: bay")
    soundings = int(console.expect(r"^soundings: (\d+)$").group(1))
    half = int((megabytes * 1e6 / DEPTH_RECORD_BYTES) ** 0.5) * CELL_M // 2
    begin = time.monotonic()
    console.type(f"get depth low {562304 - half} {6206496 - half} {562304 + half} {6206496 + half} depth.txt")
    messages = place.folder / "messages.txt"
    wait_for(lambda: "result 0 (output" in messages.read_text(), 600, "the result")
    result_s = time.monotonic() - begin
    check(re.search("^result 0 .* transfer", messages.read_text(), re.M), messages.read_text())
    console.leave()
    messages.unlink()
    return commit_s, result_s, soundings


def main():
    lines, megabytes = option("--lines", 12), option("--megabytes", 1000)
    with Place(programs_of(sys.argv[1:]), "throughput") as place:
        place.simulate_lines(lines, "--line-length", 3000, "--depth", 40, "--seed", 2026)
        for name in ("local", "network"):
            (place.folder / name).mkdir()
        local = place.write_parameters(engine={"WorkingDirectory": "local"}, path=place.folder / "local.xml")
        place.write_parameters(engine={"WorkingDirectory": "network"})
        figures = {}
        with place.start_client(local, ("-a", "messages.txt", "--local")) as console:
            figures["in process"] = measure(place, console, lines, megabytes)
        with place.start_server() as server, place.start_client(options=("-a", "messages.txt")) as console:
            figures["network"] = measure(place, console, lines, megabytes)
            server.end()
    for name, (commit_s, result_s, soundings) in figures.items():
        print(f"{name:>10}: {soundings / commit_s / 1e6:6.2f} million soundings/s committed ({soundings} in "
              f"{commit_s:.2f} s), result {megabytes / result_s:6.0f} MB/s ({megabytes} MB in {result_s:.2f} s)")
    share = figures["in process"][0] / figures["network"][0]
    extra_s = figures["network"][1] - figures["in process"][1]
    print(f"line commits over the network run at {100 * share:.0f} % of the speed in process; a result takes "
          f"{extra_s:.2f} s longer, which is {megabytes / extra_s:.0f} MB/s for the way over the network"
          if extra_s > 0 else f"line commits at {100 * share:.0f} %; the result took no longer")


if __name__ == "__main__":
    if len(sys.argv) < 5:
        print(__doc__)
        sys.exit(2)
    main()
