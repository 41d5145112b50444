#!/usr/bin/env python3
"""Several clients and several engines on one machine, and an engine that is told to end.

usage: sessions_test.py CLIENT SERVER SIMULATE SOURCE [NAME ...]"""

import os
import pathlib
import re
import signal
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import check, report, run_tests, wait_for

SURVEY = ("--line-length", 120, "--depth", 20, "--beams", 64, "--ping-rate", 3, "--seed", 7)


def engines_of(place, *names):
    """Engines with a folder of grids each, of which this test's clients find all."""
    files = []
    for name in names:
        (place.folder / name).mkdir()
        files.append(place.write_parameters(engine={"WorkingDirectory": name}, path=place.folder / f"{name}.xml"))
    place.write_parameters()
    return files


def client(place, name):
    folder = place.folder / name
    folder.mkdir()
    return place.start_client(options=("-a", "messages.txt"), folder=folder)


def two_clients_and_two_engines_get_along(place):
    place.simulate_lines(3, *SURVEY)
    first_file, second_file = engines_of(place, "first", "second")
    with place.start_server(first_file) as first, place.start_server(second_file) as second, \
            client(place, "ann") as ann, client(place, "bob") as bob:
        ports = sorted((first.port, second.port))
        for console in (ann, bob):
            console.do("broadcast", "found 2 computational engines")
            console.do("show available", "2 computational engines available")
            for number, port in enumerate(ports, 1):
                console.expect(rf"\[{number}\] 127\.0\.0\.1:{port}, \d+ threads, engine \d+\.\d+, protocol \d+")
        ann.do("attach 1", "attached OK")
        bob.do("attach 2", "attached OK")
        for console in (ann, bob):
            console.do("grid bay 16 1", "grid construction complete")
            console.do(f"filelist {place.folder}/lines.txt", "loaded 3 filenames")
            console.type("commit 1 3")
        for console in (ann, bob):
            console.do("synch", "grid synchronised OK")
            console.do("refine", "grid refined OK")
            console.do("set bbox current", "set bounding box")
            console.do("get depth full depth.txt", "commited to server")
            console.do("synch", "grid synchronised OK")
            console.leave()
        for name in ("first", "second"):
            check((place.folder / name / "bay" / "grid.sqlite").exists(), f"no grid in {name}")
        depths = [(place.folder / name / "depth.txt").read_bytes() for name in ("ann", "bob")]
        check(depths[0] == depths[1] and len(depths[0]) > 10000, "both engines give the same depths")
        first.end()
        second.end()


def a_client_goes_from_one_engine_to_the_other(place):
    first_file, second_file = engines_of(place, "first", "second")
    with place.start_server(first_file) as first, place.start_server(second_file) as second, \
            client(place, "ann") as ann:
        ann.do("broadcast", "found 2 computational engines")
        for number, grid in ((1, "cove"), (2, "cove"), (1, "bay")):
            ann.do(f"attach {number}", "attached OK")
            ann.do(f"grid {grid} 16 1", "grid construction complete")
            ann.do("detach", "detached OK")
        ann.leave()
        names = sorted(sorted(path.name for path in (place.folder / name).iterdir()) for name in ("first", "second"))
        check(names == [["bay", "cove"], ["cove"]], str(names))
        first.end()
        second.end()


def a_grid_is_open_in_one_session_at_a_time(place):
    (file,) = engines_of(place, "grids")
    with place.start_server(file) as server, client(place, "ann") as ann, client(place, "bob") as bob:
        for console in (ann, bob):
            console.attach()
        ann.do("grid bay 16 1", "grid construction complete")
        for command in ("grid bay", "grid bay 16 1"):
            found = bob.do(command, r"unexpected exception getting result \((.*)\)|grid construction complete")
            check("is in use by process" in found.group() and "for the client at 127.0.0.1:" in found.group(), found.group())
        bob.do("grid cove 16 1", "grid construction complete")
        ann.do("detach", "detached OK")
        bob.do("grid bay", "grid construction complete")
        ann.leave()
        bob.leave()
        server.end()
    check(sorted(path.name for path in (place.folder / "grids").iterdir()) == ["bay", "cove"], "nothing was set aside")


def two_engines_do_not_share_a_grid(place):
    (file,) = engines_of(place, "grids")
    with place.start_server(file) as first, place.start_server(file) as second, client(place, "ann") as ann, \
            client(place, "bob") as bob:
        for number, console in ((1, ann), (2, bob)):
            console.do("broadcast", "found 2 computational engines")
            console.do(f"attach {number}", "attached OK")
        ann.do("grid bay 16 1", "grid construction complete")
        found = bob.do("grid bay", r"unexpected exception getting result \((.*)\)|grid construction complete")
        check(re.search("in use by process [0-9]+ on host", found.group()), found.group())
        ann.leave()
        bob.leave()
        first.end()
        second.end()


def an_engine_that_is_told_to_end_leaves_in_good_order(place):
    """The line in work completes or leaves no trace, who waits wakes with an error, and the prompt stays usable."""
    names = place.simulate_lines(1, "--line-length", 1500, "--depth", 30, "--seed", 5)
    many = 40
    for number in range(many):
        os.link(place.folder / names[0], place.folder / f"line_{number:03}.gsf")
    (place.folder / "many.txt").write_text("".join(f"line_{number:03}.gsf\n" for number in range(many)))
    (place.folder / "grids").mkdir()
    place.write_parameters(engine={"WorkingDirectory": "grids", "AllowDuplicateLines": "true"})

    def outcome(word):
        text = (place.folder / "ann" / "messages.txt").read_text()
        return [int(number) for number in re.findall(rf"^line (\d+) \(\S+\) {word}", text, re.M)]

    with place.start_server() as server, client(place, "ann") as ann:
        ann.attach()
        ann.do("grid bay 16 1", "grid construction complete")
        ann.do(f"filelist {place.folder}/many.txt", f"loaded {many} filenames")
        ann.do(f"commit 1 {many}", f"{many} lines committed")
        ann.do("synch", "sending grid synch command")
        wait_for(lambda: len(outcome("completed")) >= 3, 60, "the third line")
        server.signal(signal.SIGTERM)
        ann.expect("failed to synchronise grid on server", 20)
        check(server.wait() == 0, f"the server ended badly: {server.err.text()}")
        ann.is_usable()
        completed, failed = outcome("completed"), outcome("failed")
        check(completed == list(range(len(completed))) and sorted(completed + failed) == list(range(many)),
              f"completed {completed}, failed {failed} of {many}")
        check(0 < len(failed), "it was ended before all lines were done")
        with place.start_server() as again:
            ann.do("detach", "detached OK")
            ann.attach()
            ann.do("grid bay", "grid construction complete")
            ann.do("show grid", f"^lines: {len(completed)}$")
            ann.leave()
            again.end()
    report(f"{len(completed)} lines were done, {len(failed)} failed, and the grid holds {len(completed)}")


def an_engine_without_clients_ends_at_once(place):
    place.write_parameters()
    for number in (signal.SIGTERM, signal.SIGINT):
        with place.start_server() as server:
            server.signal(number)
            check(server.wait(10) == 0, f"signal {number}")


def the_log_goes_to_a_file_too(place):
    place.write_parameters()
    with place.start_server(options=("-l", "server.log")) as server, client(place, "ann") as ann:
        ann.attach()
        ann.do("grid bay 16 1", "grid construction complete")
        ann.leave()
        server.end()
        log = (place.folder / "server.log").read_text()
        check(re.search(r"session \d+: opened by the client at 127\.0\.0\.1:\d+", log), log)
        check("ended" in log, log)


TESTS = [two_clients_and_two_engines_get_along, a_client_goes_from_one_engine_to_the_other,
         a_grid_is_open_in_one_session_at_a_time, two_engines_do_not_share_a_grid,
         an_engine_that_is_told_to_end_leaves_in_good_order, an_engine_without_clients_ends_at_once,
         the_log_goes_to_a_file_too]

if __name__ == "__main__":
    run_tests(TESTS, __doc__)
