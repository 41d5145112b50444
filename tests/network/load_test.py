#!/usr/bin/env python3
"""Twenty clients at one engine, each with a grid of its own, for some seconds: nothing gets lost.

usage: load_test.py CLIENT SERVER SIMULATE SOURCE [--long]

The long form runs for a minute. Each client commits lines, waits for them, and asks for results, over and over.
At the end every line that was accepted has been reported once and stands in its grid in the order of acceptance,
every result has been written once, and the engine's metrics agree."""

import pathlib
import re
import sqlite3
import sys
import threading
import time
import urllib.request

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import LONG, Failed, check, free_tcp_port, report, run_tests, wait_for

CLIENTS = 20
SHORT_S, LONG_S = 5, 60
LINES_A_ROUND = 3


class Worker(threading.Thread):
    """One client, working until the time is up."""

    def __init__(self, place, number, names, end):
        super().__init__()
        self.place, self.number, self.names, self.end = place, number, names, end
        self.folder = place.folder / f"client_{number:02}"
        self.folder.mkdir()
        self.accepted, self.results, self.failure = [], 0, None

    def run(self):
        try:
            with self.place.start_client(options=("-a", "messages.txt"), folder=self.folder) as console:
                console.attach(120)
                console.do(f"grid grid_{self.number:02} 16 1", "grid construction complete", 120)
                while time.monotonic() < self.end or not self.accepted:
                    self.work(console)
                console.do("drop", "grid dropped OK", 120)
                console.leave(120)
        except Failed as failure:
            self.failure = failure

    def work(self, console):
        for i in range(LINES_A_ROUND):
            name = self.names[(self.number + len(self.accepted)) % len(self.names)]
            console.do(f"add {name}", "line committed to server", 120)
            self.accepted.append(name)
        console.do("synch", "grid synchronised OK", 300)
        console.do("refine", "grid refined OK", 300)
        console.do("set bbox current", "set bounding box", 120)
        for what in ("resolution", "depth full", "hypotheses low"):
            console.do(f"get {what} result_{self.results}.txt", "commited to server", 120)
            self.results += 1
        console.do("synch", "grid synchronised OK", 300)

    def verify(self):
        if self.failure:
            raise Failed(f"client {self.number}: {self.failure}")
        messages = (self.folder / "messages.txt").read_text()
        reported = [int(n) for n in re.findall(r"^line (\d+) \(\S+\) completed ", messages, re.M)]
        check(reported == list(range(len(self.accepted))),
              f"client {self.number}: {len(self.accepted)} lines accepted, {reported} reported")
        results = sorted(int(n) for n in re.findall(r"^result (\d+) \(output to .* transfer", messages, re.M))
        check(results == list(range(self.results)), f"client {self.number}: results {results} of {self.results}")
        for number in range(self.results):
            size = (self.folder / f"result_{number}.txt").stat().st_size
            check(size > 100, f"client {self.number}: result {number} has {size} bytes")
        store = self.place.folder / "grids" / f"grid_{self.number:02}" / "grid.sqlite"
        with sqlite3.connect(f"file:{store}?mode=ro", uri=True) as database:
            held = [name for (name,) in database.execute("SELECT name FROM lines ORDER BY sequence")]
        check([pathlib.Path(name).name for name in held] == [pathlib.Path(name).name for name in self.accepted],
              f"client {self.number}: the grid holds other lines than were accepted")


def metrics_at(port):
    with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=30) as page:
        text = page.read().decode()
    return {name: float(value) for name, value in re.findall(r"^(\w+) (\S+)$", text, re.M)}


def twenty_clients_lose_nothing(place):
    seconds = LONG_S if LONG else SHORT_S
    names = place.simulate_lines(8, "--line-length", 100, "--depth", 20, "--beams", 64, "--seed", 3)
    (place.folder / "grids").mkdir()
    metrics_port = free_tcp_port()
    place.write_parameters({"MetricsAddress": f"127.0.0.1:{metrics_port}", "MaxDiscoveryRequestsPerSecond": 1000},
                           {"AllowDuplicateLines": "true", "WorkingDirectory": "grids"})
    with place.start_server() as server:
        begin = time.monotonic()
        workers = [Worker(place, number, names, begin + seconds) for number in range(CLIENTS)]
        for worker in workers:
            worker.start()
        most_kib = 0
        while any(worker.is_alive() for worker in workers):
            most_kib = max(most_kib, server.memory_kib())
            check(server.running(), "the server ended")
            time.sleep(0.2)
        for worker in workers:
            worker.join()
        took = time.monotonic() - begin
        for worker in workers:
            worker.verify()
        lines = sum(len(worker.accepted) for worker in workers)
        results = sum(worker.results for worker in workers)

        def settled():
            now = metrics_at(metrics_port)
            return now if now["quarro_sessions"] == 0 else None

        now = wait_for(settled, 60, "the end of all sessions")
        check((now["quarro_lines_accepted_total"], now["quarro_lines_completed_total"], now["quarro_lines_failed_total"])
              == (lines, lines, 0), f"{lines} lines were accepted; the engine counts {now}")
        check((now["quarro_run_queue_requests"], now["quarro_results_waiting"]) == (0, 0), f"left over: {now}")
        server.end()
    report(f"{CLIENTS} clients, {took:.0f} s: {lines} lines ({now['quarro_soundings_used_total']:.0f} soundings) and "
          f"{results} results, none lost; at most {most_kib / 1024:.0f} MiB of anonymous memory at the server")


TESTS = [twenty_clients_lose_nothing]

if __name__ == "__main__":
    run_tests(TESTS, __doc__)
