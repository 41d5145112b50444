"""Runs one program and tells what it cost: wall and processor time, and memory."""

import os
import subprocess
import threading
import time
from dataclasses import dataclass

TICKS_A_SECOND = os.sysconf("SC_CLK_TCK")
SAMPLE_SECONDS = 0.02


class RunFailed(Exception):
    """A program that ended with an error, or did not say what it should."""


@dataclass
class Cost:
    wall_s: float = 0.0
    processor_s: float = 0.0
    peak_rss_mib: float = 0.0  # with the pages of files that it has mapped; sampled
    peak_anonymous_mib: float = 0.0  # memory of its own, sampled


class Process:
    """A program that runs; its cost is known once it has ended."""

    def __init__(self, command, **pipes):
        self.command = command
        self.started = time.monotonic()
        self.process = subprocess.Popen(command, **pipes)
        self._peak_kib = {"VmHWM": 0, "RssAnon": 0}
        self._ended = threading.Event()
        self._sampler = threading.Thread(target=self._sample)
        self._sampler.start()

    def _sample(self):
        # The resource usage that the system gives at the end counts this interpreter's memory,
        # which the child shared until it became the program.
        while not self._ended.wait(SAMPLE_SECONDS):
            try:
                with open(f"/proc/{self.process.pid}/status") as status:
                    for line in status:
                        key, _, value = line.partition(":")
                        if key in self._peak_kib:
                            self._peak_kib[key] = max(self._peak_kib[key], int(value.split()[0]))
            except OSError:
                return

    def processor_s(self):
        """User and system time until now."""
        with open(f"/proc/{self.process.pid}/stat") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS_A_SECOND

    def wait(self):
        """Waits for the end. Returns the cost; raises RunFailed for a status that is not 0."""
        _, status, usage = os.wait4(self.process.pid, 0)
        wall_s = time.monotonic() - self.started
        self.process.returncode = os.waitstatus_to_exitcode(status)
        self._ended.set()
        self._sampler.join()
        if self.process.returncode != 0:
            raise RunFailed(f"{' '.join(self.command)}: status {self.process.returncode}")
        return Cost(wall_s, usage.ru_utime + usage.ru_stime, self._peak_kib["VmHWM"] / 1024,
                    self._peak_kib["RssAnon"] / 1024)


def run(command, output=None):
    """Runs a program to its end, its standard output in a file."""
    with open(output or os.devnull, "wb") as out:
        return Process(command, stdin=subprocess.DEVNULL, stdout=out).wait()
