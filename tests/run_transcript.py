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

In the scratch directory stands params.xml, an empty parameter file. The host in the prompt, which
depends on the machine, is written [HOST]; addresses are written 0xADDRESS. A client that still runs
when its commands are read is given a moment, then ended, and its status reads "running".
"""

import os
import pathlib
import re
import resource
import shlex
import signal
import subprocess
import sys
import tempfile

SKIPPED = 77
GRACE_S = 3
LIMIT_S = 300


def filters_of(case):
    rules = [(r"\[(localhost|127\.0\.0\.1|ip6-localhost)[^\]]*\]", "[HOST]"),
             (r"0x[0-9a-f]+", "0xADDRESS")]
    path = case / "filters"
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


def main():
    client, source, case = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    client, source = str(client), str(source)
    record = "--record" in sys.argv
    data = pathlib.Path(source).parent / "shared" / "data"
    if (case / "needs_data").exists() and not (data / "deep_30khz.gsf").exists():
        print(f"SKIPPED: {case.name} needs the survey data beside the project, which is absent")
        return SKIPPED
    environment = dict(os.environ, QUARRO_SOURCE=source, QUARRO_CLIENT=client,
                       QUARRO_SIMULATE=str(pathlib.Path(client).resolve().parent.parent / "simulate" /
                                           "Quarro_Simulate"),
                       QUARRO_DATA=str(data), TERM="dumb")
    if (case / "environment").exists():
        for line in (case / "environment").read_text().splitlines():
            name, _, value = line.partition("=")
            environment[name] = value
    with tempfile.TemporaryDirectory(prefix="quarro_transcript_") as folder:
        scratch = pathlib.Path(folder)
        (scratch / "params.xml").write_text("<parameters/>\n")
        run_script("setup", case, scratch, environment)

        def text_of(name):
            path = case / name
            text = path.read_text() if path.exists() else ""
            return text.replace("@SOURCE@", source).replace("@DATA@", str(data))

        status = run_client(client, shlex.split(text_of("command_line")), text_of("commands"),
                            scratch, environment, limit_files(case))
        failed = False
        printed = {"status": status + "\n"}
        rules = filters_of(case)
        names = [(source, "@SOURCE@"), (str(data), "@DATA@"), (folder, "@SCRATCH@")]
        for stream in ("stdout", "stderr"):
            printed[stream] = read_filtered(scratch / f".{stream}", rules, names)
        for name in files_compared(case):
            printed[name] = read_filtered(scratch / name, rules, names)
        printed["stderr"], printed["apart"] = part(printed["stderr"], case)
        for name, text in printed.items():
            path = case / f"{name}.expected"
            expected = path.read_text() if path.exists() else ("0\n" if name == "status" else "")
            if text == expected:
                continue
            if record:
                path.write_text(text)
                continue
            failed = True
            print(f"--- {path}\n{expected}\n+++ {name}\n{text}")
        if not failed:
            run_script("check", case, scratch, environment)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
