"""Quarro_Client with the in-process engine, driven command by command.

The client prints a prompt when it has carried a command out, so the time from a command to the next
prompt is what it took; `synch` holds the prompt back until everything asked for before is done.
"""

import os
import subprocess
import time
from xml.sax.saxutils import escape

from process import Cost, Process, RunFailed

PROMPT = b">> "


def write_parameters(path, grids, template, threads):
    values = {"ClientServer": {"BAGMetadataTemplate": template},
              "Engine": {"WorkingDirectory": grids, "Threads": threads}}
    with open(path, "w") as file:
        file.write("<parameters>\n")
        for section, keys in values.items():
            file.write(f'  <section name="{section}">\n')
            for key, value in keys.items():
                file.write(f'    <parameter key="{key}">{escape(str(value))}</parameter>\n')
            file.write("  </section>\n")
        file.write("</parameters>\n")


class Client:
    def __init__(self, program, parameters, log):
        """Starts the client and waits for its first prompt. Its messages go to the file `log`."""
        self.log = log
        with open(log, "wb") as messages:
            self.running = Process([program, "--local", parameters], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=messages)
        self._await_prompt()

    def _await_prompt(self):
        seen = b""
        while not seen.endswith(PROMPT):
            more = os.read(self.running.process.stdout.fileno(), 4096)
            if not more:
                self.running.process.wait()
                raise RunFailed(f"the client ended before its time; see {self.log}")
            seen += more

    def do(self, *commands):
        """Runs commands. Returns the wall and processor time from the first to the last prompt."""
        wall_s, processor_s = time.monotonic(), self.running.processor_s()
        for command in commands:
            self.running.process.stdin.write(command.encode() + b"\n")
            self.running.process.stdin.flush()
            self._await_prompt()
        return Cost(time.monotonic() - wall_s, self.running.processor_s() - processor_s)

    def exit(self):
        """Ends the client. Returns the cost of the whole run."""
        self.running.process.stdin.write(b"exit\n")
        self.running.process.stdin.close()
        return self.running.wait()
