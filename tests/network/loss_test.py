#!/usr/bin/env python3
"""What becomes of a client, and of the grid, when the engine or the way to it is lost.

usage: loss_test.py CLIENT SERVER SIMULATE SOURCE [NAME ...]

At every stage of the work: a console that waits wakes with an error, its prompt stays usable, every line that was
accepted is accounted for once, `detach` and `attach` work again when the engine is back, and the grid then holds the
first lines that were accepted, in their order, and all that were reported. A loss shorter than ReconnectSeconds
goes unnoticed. Where network namespaces may be made, engine and client stand on machines of their own, with TLS."""

import atexit
import functools
import os
import pathlib
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import Failed, Machine, check, free_tcp_port, report, run_tests, wait_for

RECONNECT_S = 3
# Until a loss without a sign from the other side is noticed: a ping's interval and its time to be answered.
SILENCE_S = 10
WAKE_AFTER_END_S = RECONNECT_S + 10       # the connection breaks at once; the rest is for a busy machine
WAKE_AFTER_SILENCE_S = SILENCE_S + RECONNECT_S + 15
LINES = 60
# The engine is in the middle of something once it has computed for so long; much more is asked of it.
IN_WORK_S = 0.05
CELL_M = 8
LARGE_CELLS = 20e6  # of a result that takes seconds
MOST_CELLS = 60e6   # the engine gives no more than 64 Mi at a time

survey_folder = None
survey_folders = {}


class AnswerCameFirst(Exception):
    """The engine was done before it was lost."""


def survey(place, work=1):
    """A folder with the list lines.txt of LINES lines, made once for all tests."""
    global survey_folder
    if work not in survey_folders:
        folder = survey_folders[work] = pathlib.Path(tempfile.mkdtemp(prefix="quarro_loss_survey_"))
        atexit.register(shutil.rmtree, folder, True)
        done = subprocess.run([place.simulate, "--output", "made", "--lines", "4", "--line-length", str(800 * work),
                               "--depth", "30", "--seed", "5"], cwd=folder, capture_output=True, text=True, check=False)
        check(done.returncode == 0, done.stderr)
        made = sorted((folder / "made").glob("*.gsf"))
        for number in range(LINES):
            os.link(made[number % len(made)], folder / f"line_{number:03}.gsf")
    survey_folder = survey_folders[work]
    names = [f"line_{number:03}.gsf" for number in range(LINES)]
    (place.folder / "lines.txt").write_text("".join(name + "\n" for name in names))
    return names


def large_box(work):
    """Around the survey, whose lines lie near (562300, 6206500). Cells without data take time like others."""
    half = int(min(LARGE_CELLS * work, MOST_CELLS) ** 0.5) * CELL_M // 2
    return f"{562304 - half} {6206496 - half} {562304 + half} {6206496 + half}"


def lost_in_time(attempt):
    """The test: again with more work where a fast machine is done before the loss."""
    @functools.wraps(attempt)
    def test(place, *stage):
        for work in (1, 2, 4):
            try:
                return attempt(place, *stage, work)
            except AnswerCameFirst:
                print(f"  the engine was done before it was lost, with {work} times the work", flush=True)
                place.clear()
        raise Failed("the engine was always done before it was lost")
    return test


def network_keys(**more):
    return {"SurveyDirectories": survey_folder, "ReconnectSeconds": RECONNECT_S, **more}


ENGINE = {"AllowDuplicateLines": "true", "WorkingDirectory": "grids"}


class Outcome:
    """What the message file tells of lines and results."""

    def __init__(self, folder):
        path = folder / "messages.txt"
        text = path.read_text() if path.exists() else ""
        self.completed = [int(n) for n in re.findall(r"^line (\d+) \(\S*\) completed ", text, re.M)]
        self.failed = [int(n) for n in re.findall(r"^line (\d+) \(\S*\) failed to complete", text, re.M)]
        self.transferred = [int(n) for n in re.findall(r"^result (\d+) \(output to .* transfer", text, re.M)]


def lines_in(place, grid="bay"):
    """The names of the grid's lines, in its order, read from its store."""
    with sqlite3.connect(f"file:{place.folder}/grids/{grid}/grid.sqlite?mode=ro", uri=True) as store:
        return [pathlib.Path(name).name for (name,) in store.execute("SELECT name FROM lines ORDER BY sequence")]


def check_prefix(place, accepted, reported, grid="bay"):
    held = lines_in(place, grid)
    check(held == accepted[:len(held)], f"the grid holds {held}, which is not how the accepted lines begin")
    check(reported == list(range(len(reported))), f"lines were reported out of order: {reported}")
    check(len(held) >= len(reported), f"{len(reported)} lines were reported, the grid holds {len(held)}")
    return len(held)


class Waiting:
    """A console that waits for an answer of the engine, which is going to be lost."""

    def __init__(self, console, complaint, answer):
        self.console, self.complaint, self.answer = console, complaint, answer

    def until_in_work(self, server, computed_before_s):
        wait_for(lambda: server.computed_s() > computed_before_s + IN_WORK_S or self.console.has(self.answer), 60,
                 "the work")

    def expect_complaint(self, limit_s):
        found = self.console.expect(f"{self.complaint}|{self.answer}", limit_s)
        if found.group() == self.answer:
            raise AnswerCameFirst


def stop_at(place, server, console, stage, work=1):
    """Brings the work to a stage at which the console waits for the engine."""
    for_synch = ("failed to synchronise grid on server", "grid synchronised OK")
    console.do(f"commit 1 {LINES}", f"{LINES} lines committed")
    if stage == "commit":
        console.do("synch", "sending grid synch command")
        wait_for(lambda: len(Outcome(place.folder).completed) >= 5, 60, "the fifth line")
        return Waiting(console, *for_synch)
    console.do("synch", "grid synchronised OK", 120)
    computed_s = server.computed_s()
    if stage == "refine":
        console.do("refine", "sending refine grid command")
        waiting = Waiting(console, "failed to refine grid on server", "grid refined OK")
    else:
        check(stage == "get", stage)
        console.do(f"get depth low {large_box(work)} depth.txt", "commited to server")
        console.do("synch", "sending grid synch command")
        waiting = Waiting(console, *for_synch)
    waiting.until_in_work(server, computed_s)
    return waiting


def begin(place, **how):
    console = place.start_client(options=("-a", "messages.txt"), **how)
    console.attach()
    console.do("filelist lines.txt", f"loaded {LINES} filenames")
    console.do(f"grid bay {CELL_M} 0.5", "grid construction complete")
    return console


def come_back(place, console, accepted):
    """The engine is there again: the same console detaches, attaches, and finds its grid."""
    console.do("detach", "detached OK", 60)
    console.attach()
    console.do("grid bay", "grid construction complete")
    held = check_prefix(place, accepted, Outcome(place.folder).completed)
    console.do("show grid", f"^lines: {held}$")
    console.do("add line_000.gsf", "line committed")
    console.do("synch", "grid synchronised OK")
    check(len(lines_in(place)) == held + 1, "the grid takes lines again")
    console.leave()
    return held


def everything_is_accounted_for(place):
    outcome = Outcome(place.folder)
    check(sorted(outcome.completed + outcome.failed) == list(range(LINES)),
          f"completed {outcome.completed}, failed {outcome.failed} of {LINES} lines")


def is_back(place, console, accepted):
    """The engine is started again. Gives the numbers of lines reported before and held."""
    console.is_usable()
    everything_is_accounted_for(place)
    reported = len(Outcome(place.folder).completed)
    with place.start_server() as again:
        held = come_back(place, console, accepted)
        again.end()
    return reported, held


@lost_in_time
def server_dies(place, stage, work):
    accepted = survey(place, work)
    (place.folder / "grids").mkdir()
    place.write_parameters(network_keys(Port=free_tcp_port()), ENGINE)
    with place.start_server() as server, begin(place) as console:
        waiting = stop_at(place, server, console, stage, work)
        server.kill()
        lost = time.monotonic()
        waiting.expect_complaint(WAKE_AFTER_END_S)
        woke = time.monotonic() - lost
        reported, held = is_back(place, console, accepted)
        report(f"killed during {stage}: console woke after {woke:.1f} s; {reported} of {LINES} lines reported, "
              f"the grid holds {held}")


def killed_during_commit(place):
    server_dies(place, "commit")


def killed_during_refine(place):
    server_dies(place, "refine")


def killed_during_get(place):
    server_dies(place, "get")


def killed_while_idle(place):
    """The next command tells."""
    accepted = survey(place)
    (place.folder / "grids").mkdir()
    place.write_parameters(network_keys(Port=free_tcp_port()), ENGINE)
    with place.start_server() as server, begin(place) as console:
        console.do(f"commit 1 {LINES}", f"{LINES} lines committed")
        console.do("synch", "grid synchronised OK", 120)
        server.kill()
        console.do("synch", "failed to synchronise grid on server", WAKE_AFTER_END_S)
        is_back(place, console, accepted)


@lost_in_time
def stopped_for_long(place, stage, work):
    """A server that neither answers nor ends."""
    accepted = survey(place, work)
    (place.folder / "grids").mkdir()
    place.write_parameters(network_keys(), ENGINE)
    with place.start_server() as server, begin(place) as console:
        waiting = stop_at(place, server, console, stage, work)
        server.signal(signal.SIGSTOP)
        lost = time.monotonic()
        waiting.expect_complaint(WAKE_AFTER_SILENCE_S)
        woke = time.monotonic() - lost
        console.is_usable()
        everything_is_accounted_for(place)
        server.signal(signal.SIGCONT)
        # The engine finds out by itself that nobody comes back for the session, and lets its grid go.
        console.do("detach", "detached OK")
        console.attach()

        def grid_is_free():
            console.type("grid bay")
            return "complete" in console.expect("grid construction complete|grid construction failed").group()

        wait_for(grid_is_free, 60, "the release of the lost session's grid")
        held = check_prefix(place, accepted, Outcome(place.folder).completed)
        console.leave()
        server.end()
        report(f"stopped during {stage}: console woke after {woke:.1f} s; the grid holds {held} of {LINES} lines")


def stopped_during_commit(place):
    stopped_for_long(place, "commit")


def stopped_during_refine(place):
    stopped_for_long(place, "refine")


def stopped_for_a_moment_goes_unnoticed(place):
    accepted = survey(place)
    (place.folder / "grids").mkdir()
    place.write_parameters(network_keys(), ENGINE)
    with place.start_server() as server, begin(place) as console:
        stop_at(place, server, console, "commit")
        server.signal(signal.SIGSTOP)
        time.sleep(2)
        server.signal(signal.SIGCONT)
        console.expect("grid synchronised OK", 120)
        check(Outcome(place.folder).completed == list(range(LINES)), "every line is reported once, in order")
        check(lines_in(place) == accepted, "the grid holds every line")
        console.leave()
        server.end()


class TwoMachines:
    """The engine and the client on machines of their own, with a cable between them and TLS over it."""

    def __init__(self, place, reconnect_s=RECONNECT_S, work=1):
        self.machines = []
        self.place = place
        try:
            self.near = self._machine()
            self.far = self._machine()
            self.near.link(self.far, "cable", "10.77.1.1", "10.77.1.2")
        except (OSError, PermissionError) as reason:
            self.__exit__()
            raise PermissionError(f"network namespaces cannot be made here: {reason}") from None
        self.accepted = survey(place, work)
        (place.folder / "grids").mkdir()
        made = subprocess.run([f"{place.source}/script/certificates", "--folder", "certificates"], cwd=place.folder,
                              capture_output=True, text=True, check=False)
        check(made.returncode == 0, made.stderr)
        common = network_keys(DiscoveryAddresses=None, CertificateAuthority="certificates/authority.pem",
                              ReconnectSeconds=reconnect_s)
        place.write_parameters({**common, "Address": "10.77.1.2", "Port": 4700, "Certificate": "certificates/server.pem",
                                "PrivateKey": "certificates/server.key"}, ENGINE, place.folder / "server.xml")
        place.write_parameters({**common, "Certificate": "certificates/client.pem",
                                "PrivateKey": "certificates/client.key"})

    def _machine(self):
        self.machines.append(Machine())
        return self.machines[-1]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for machine in self.machines:
            machine.close()

    def server(self):
        return self.place.start_server(self.place.folder / "server.xml", machine=self.far)

    def console(self):
        return begin(self.place, machine=self.near)

    def drop(self, share):
        """Lets each datagram be lost with this probability, both ways; 0 ends it."""
        for machine in (self.near, self.far):
            machine.run("iptables-legacy -F INPUT")
            if share >= 1:
                machine.run("iptables-legacy -A INPUT -i cable -j DROP")
            elif share > 0:
                machine.run(f"iptables-legacy -A INPUT -i cable -m statistic --mode random --probability {share} -j DROP")


@lost_in_time
def pulled_for_long(place, stage, pull, mend, work):
    with TwoMachines(place, work=work) as two, two.server() as server, two.console() as console:
        waiting = stop_at(place, server, console, stage, work)
        pull(two)
        lost = time.monotonic()
        waiting.expect_complaint(WAKE_AFTER_SILENCE_S)
        woke = time.monotonic() - lost
        console.is_usable()
        everything_is_accounted_for(place)
        mend(two)
        console.do("detach", "detached OK")
        console.attach()

        def grid_is_free():
            console.type("grid bay")
            return "complete" in console.expect("grid construction complete|grid construction failed").group()

        wait_for(grid_is_free, 90, "the release of the lost session's grid")
        held = check_prefix(place, two.accepted, Outcome(place.folder).completed)
        console.leave()
        server.end()
        report(f"network lost during {stage}: console woke after {woke:.1f} s; the grid holds {held} of {LINES} lines")


def unplug(two):
    two.near.run("ip link set cable down")


def plug(two):
    two.near.run("ip link set cable up")


def cable_pulled_during_commit(place):
    pulled_for_long(place, "commit", unplug, plug)


def cable_pulled_during_get(place):
    pulled_for_long(place, "get", unplug, plug)


def packets_dropped_during_refine(place):
    pulled_for_long(place, "refine", lambda two: two.drop(1), lambda two: two.drop(0))


def cable_pulled_for_a_moment_goes_unnoticed(place):
    with TwoMachines(place, reconnect_s=30) as two, two.server() as server, two.console() as console:
        stop_at(place, server, console, "commit")
        for _ in range(2):
            unplug(two)
            time.sleep(3)
            plug(two)
            time.sleep(1)
        console.expect("grid synchronised OK", 120)
        check(Outcome(place.folder).completed == list(range(LINES)), "every line is reported once, in order")
        check(lines_in(place) == two.accepted, "the grid holds every line")
        console.leave()
        server.end()


def silence_past_the_pings_is_bridged(place):
    """The connection is given up and made anew; the session goes on, and nothing comes twice."""
    with TwoMachines(place, reconnect_s=60) as two, two.server() as server, two.console() as console:
        stop_at(place, server, console, "commit")
        two.drop(1)
        time.sleep(SILENCE_S + 5)
        two.drop(0)
        console.expect("grid synchronised OK", 120)
        check(Outcome(place.folder).completed == list(range(LINES)), "every line is reported once, in order")
        check(lines_in(place) == two.accepted, "the grid holds every line")
        console.do("set bbox current", "set bounding box")
        console.do("get depth low depth.txt", "commited to server")
        console.do("synch", "grid synchronised OK")
        check(Outcome(place.folder).transferred == [0], "a result comes over the new connection")
        console.leave()
        server.end()


def one_packet_in_ten_lost_goes_unnoticed(place):
    with TwoMachines(place, reconnect_s=30) as two, two.server() as server, two.console() as console:
        two.drop(0.1)
        console.do(f"commit 1 {LINES}", f"{LINES} lines committed", 120)
        console.do("synch", "grid synchronised OK", 240)
        console.do("set bbox current", "set bounding box", 120)
        console.do("get resolution resolution.txt", "commited to server", 120)
        console.do("synch", "grid synchronised OK", 240)
        check(Outcome(place.folder).completed == list(range(LINES)), "every line is reported once, in order")
        check(Outcome(place.folder).transferred == [0], "the result is there")
        check(lines_in(place) == two.accepted, "the grid holds every line")
        two.drop(0)
        console.leave()
        server.end()


TESTS = [killed_during_commit, killed_during_refine, killed_during_get, killed_while_idle, stopped_during_commit,
         stopped_during_refine, stopped_for_a_moment_goes_unnoticed, cable_pulled_during_commit,
         cable_pulled_during_get, packets_dropped_during_refine, cable_pulled_for_a_moment_goes_unnoticed,
         silence_past_the_pings_is_bridged, one_packet_in_ten_lost_goes_unnoticed]

if __name__ == "__main__":
    run_tests(TESTS, __doc__)
