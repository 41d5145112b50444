#!/usr/bin/env python3
"""Runs the client on one transcript case and compares what it printed, character by character.

A case is a folder with
  command_line     arguments, one line; @SOURCE@ stands for the source root
  commands         optional: what is typed
  setup            optional: a shell script run first in the scratch directory
  stdout.expected  standard output
  stderr.expected  standard error
  status.expected  optional: exit status, 0 if absent
  FILE.expected    optional, of any other name: a text file which the client wrote
  filters          optional: lines "pattern => replacement" (Python) applied to all of these
  apart            optional: patterns; lines of standard error in which one is found come from other
                   threads at no fixed moment: they are compared by themselves, in their own order
  apart.expected   those lines
  environment      optional: lines NAME=VALUE, for the client and the scripts
  limits           optional: KiB that no file which the client writes may exceed: a full disc
  check            optional: a shell script run afterwards in the scratch directory
  needs_data       optional: the case is skipped where the shared survey data is absent

With --network SERVER an engine daemon is started in the scratch directory, with the parameter file of the
case, and the client finds it there: --local is dropped from its arguments. Everything is compared as before. What
differs of necessity:
  - an engine is told by its address instead of "in process"; the address is written "in process"
  - a line that is no file in the survey directories (the scratch directory and the survey data) is
    refused in other words than those in which it cannot be opened; these are written instead
  - filters_network, beside filters, has what else differs in a case
  - a case whose command line has no --local is skipped, and so is one with a file local_only, which
    tells why.
The daemon must come up, and leave in good order on SIGTERM once the client has ended. The files into which
results were written are compared, byte by byte, with those of a run with --local.

In the scratch directory stands params.xml, an empty parameter file. The host in the prompt, which
depends on the machine, is written [HOST]; addresses are written 0xADDRESS. A client that still runs
when its commands are read is given a moment, then ended, and its status reads "running".
"""

import contextlib
import os
import pathlib
import re
import resource
import shlex
import signal
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "network"))
import programs

SKIPPED = 77
GRACE_S = 3
LIMIT_S = 300
REFUSED = r'failed: the survey file ("[^"]*") is refused: '
ON_NETWORK = [(r"\b127\.0\.0\.1:\d+, (\d+ threads, engine )", r"in process, \1"),
              (REFUSED + r"no such file under the survey directories .*; put it there, or .*",
               r"failed: cannot open \1 for reading: No such file or directory"),
              (REFUSED + "it is no regular file", r"failed: \1 is a directory, not a survey line")]
# In the metadata of a BAG.
WRITTEN_AT = re.compile(rb"\d{4}-\d{2}-\d{2}(T\d{2}:\d{2}:\d{2}(\.\d+)?Z?)?")


def filters_of(case, on_network):
    rules = [(r"\[(localhost|127\.0\.0\.1|ip6-localhost)[^\]]*\]", "[HOST]"),
             (r"0x[0-9a-f]+", "0xADDRESS")]
    if on_network:
        rules += ON_NETWORK
    for name in ["filters"] + ["filters_network"] * on_network:
        path = case / name
        if path.exists():
            for line in path.read_text().splitlines():
                if line:
                    pattern, _, replacement = line.partition(" =>")
                    rules.append((pattern, replacement.strip()))
    return rules


def read_filtered(path, rules, names):
    """What stands in a file, without what differs from run to run; nothing if there is no file."""
    text = path.read_text(errors="backslashreplace") if path.exists() else ""
    for pattern, replacement in rules:
        text = re.sub(pattern, replacement, text)
    for name, replacement in names:
        text = text.replace(name, replacement)
    return text


def files_compared(case):
    known = {"stdout", "stderr", "status", "apart"}
    return sorted({path.stem for path in case.glob("*.expected")} - known)


def run_script(name, case, scratch, environment):
    path = case / name
    if path.exists():
        subprocess.run(["bash", "-euo", "pipefail", str(path)], cwd=scratch, env=environment,
                       check=True)


def part(text, case):
    """The text without the lines that are compared by themselves, and those lines."""
    path = case / "apart"
    if not path.exists():
        return text, ""
    patterns = [re.compile(line) for line in path.read_text().splitlines() if line]
    kept, taken = [], []
    for line in text.splitlines(keepends=True):
        (taken if any(pattern.search(line) for pattern in patterns) else kept).append(line)
    return "".join(kept), "".join(taken)


def limit_files(case):
    """What the client's process does before it becomes the client, or None."""
    path = case / "limits"
    if not path.exists():
        return None
    size = int(path.read_text()) * 1024

    def limit():
        # A write past the limit fails, as on a full disc, instead of raising the signal.
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

    return limit


def run_client(client, arguments, commands, scratch, environment, prepare):
    with open(scratch / ".stdout", "wb") as out, open(scratch / ".stderr", "wb") as err:
        process = subprocess.Popen([client, *arguments], stdin=subprocess.PIPE, stdout=out,
                                   stderr=err, cwd=scratch, env=environment, preexec_fn=prepare)
        try:
            process.communicate(commands.encode(), timeout=LIMIT_S if "exit" in commands else GRACE_S)
            status = str(process.returncode)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            status = "running"
    return status


def start_server(server, scratch, data, environment):
    """An engine daemon that this case's client alone finds."""
    programs.write_parameters(
        scratch / "params.xml",
        {"Network": {"Port": 0, "DiscoveryPort": programs.free_udp_port(), "DiscoveryWaitMs": 300,
                     "DiscoveryAddresses": "127.255.255.255", "SurveyDirectories": f"{scratch}:{data}"}})
    return programs.Server(server, "params.xml", scratch, environment=environment)


class Run:
    """One run of a case in a scratch directory."""

    def __init__(self, client, source, case, server, scratch):
        self.case, self.scratch, self.on_network = case, scratch, server is not None
        self.source, self.data = source, str(pathlib.Path(source).parent / "shared" / "data")
        self.environment = dict(os.environ, QUARRO_SOURCE=source, QUARRO_CLIENT=client, QUARRO_DATA=self.data,
                                QUARRO_SIMULATE=str(pathlib.Path(client).parent.parent / "simulate" /
                                                    "Quarro_Simulate"),
                                TERM="dumb")
        if (case / "environment").exists():
            for line in (case / "environment").read_text().splitlines():
                name, _, value = line.partition("=")
                self.environment[name] = value
        (scratch / "params.xml").write_text("<parameters/>\n")
        run_script("setup", case, scratch, self.environment)
        arguments = shlex.split(self._text_of("command_line"))
        self.commands = self._text_of("commands")
        daemon = contextlib.nullcontext()
        if self.on_network:
            arguments.remove("--local")
            daemon = start_server(server, scratch, self.data, self.environment)
        with daemon:
            self.status = run_client(client, arguments, self.commands, scratch, self.environment, limit_files(case))
            if self.on_network:
                daemon.end()

    def _text_of(self, name):
        path = self.case / name
        text = path.read_text() if path.exists() else ""
        return text.replace("@SOURCE@", self.source).replace("@DATA@", self.data)

    def printed(self):
        """What is compared with the expectations, by name."""
        rules = filters_of(self.case, self.on_network)
        names = [(self.source, "@SOURCE@"), (self.data, "@DATA@"), (str(self.scratch), "@SCRATCH@")]
        texts = {"status": self.status + "\n"}
        for stream in ("stdout", "stderr"):
            texts[stream] = read_filtered(self.scratch / f".{stream}", rules, names)
        for name in files_compared(self.case):
            texts[name] = read_filtered(self.scratch / name, rules, names)
        texts["stderr"], texts["apart"] = part(texts["stderr"], self.case)
        return texts

    def results(self):
        """The bytes of the files into which results were written, by name, without the times of writing."""
        asked = [line.split()[-1] for line in self.commands.splitlines() if line.startswith("get ")]
        files = {name: self.scratch / name for name in asked}
        return {name: WRITTEN_AT.sub(b"TIME", path.read_bytes()) for name, path in files.items() if path.is_file()}


def differences(run, record):
    """True if something was printed that is not expected."""
    found = False
    for name, text in run.printed().items():
        path = run.case / f"{name}.expected"
        expected = path.read_text() if path.exists() else ("0\n" if name == "status" else "")
        if text == expected:
            continue
        if record:
            path.write_text(text)
            continue
        found = True
        print(f"--- {path}\n{expected}\n+++ {name}\n{text}")
    return found


def scratch_directory():
    return tempfile.TemporaryDirectory(prefix="quarro_transcript_")


def results_differ(run, client):
    """True if a result that came over the network is not that of an engine in process, byte by byte."""
    over_network = run.results()
    if not over_network:
        return False
    with scratch_directory() as folder:
        in_process = Run(client, run.source, run.case, None, pathlib.Path(folder)).results()
    differing = [name for name, content in over_network.items() if content != in_process.get(name, content)]
    print(f"{len(over_network)} result files compared with those of the engine in process; different: {differing}")
    return bool(differing)


def reason_to_skip(source, case, server):
    if server and "--local" not in shlex.split((case / "command_line").read_text()):
        return "runs no engine"
    if server and (case / "local_only").exists():
        return (case / "local_only").read_text().strip()
    data = pathlib.Path(source).parent / "shared" / "data"
    if (case / "needs_data").exists() and not (data / "deep_30khz.gsf").exists():
        return "needs the survey data beside the project, which is absent"
    return None


def main():
    client, source, case = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    server = None
    if "--network" in sys.argv:
        server = str(pathlib.Path(sys.argv[sys.argv.index("--network") + 1]).resolve())
    reason = reason_to_skip(source, case, server)
    if reason:
        print(f"SKIPPED: {case.name}: {reason}")
        return SKIPPED
    with scratch_directory() as folder:
        run = Run(str(client), str(source), case, server, pathlib.Path(folder))
        if differences(run, "--record" in sys.argv):
            return 1
        if server and results_differ(run, str(client)):
            return 1
        run_script("check", case, run.scratch, run.environment)
    return 0


if __name__ == "__main__":
    sys.exit(main())
