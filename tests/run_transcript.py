#!/usr/bin/env python3
"""Runs the client on one transcript case and compares what it printed, character by character.

A case is a folder with
  command_line     arguments, one line; @SOURCE@ stands for the source root
  commands         optional: what is typed
  setup            optional: a shell script run first in the scratch directory
  stdout.expected  standard output
  stderr.expected  standard error
  status.expected  optional: exit status, 0 if absent
  filters          optional: lines "pattern => replacement" (Python) applied to both outputs
  check            optional: a shell script run afterwards in the scratch directory
  needs_data       optional: the case is skipped where the shared survey data is absent

In the scratch directory stands params.xml, an empty parameter file. The host in the prompt, which
depends on the machine, is written [HOST]; addresses are written 0xADDRESS. A client that still runs
when its commands are read is given a moment, then ended, and its status reads "running".
"""

import os
import pathlib
import re
import shlex
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


def run_script(name, case, scratch, environment):
    path = case / name
    if path.exists():
        subprocess.run(["bash", "-euo", "pipefail", str(path)], cwd=scratch, env=environment,
                       check=True)


def run_client(client, arguments, commands, scratch, environment):
    with open(scratch / ".stdout", "wb") as out, open(scratch / ".stderr", "wb") as err:
        process = subprocess.Popen([client, *arguments], stdin=subprocess.PIPE, stdout=out,
                                   stderr=err, cwd=scratch, env=environment)
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
    with tempfile.TemporaryDirectory(prefix="quarro_transcript_") as folder:
        scratch = pathlib.Path(folder)
        (scratch / "params.xml").write_text("<parameters/>\n")
        run_script("setup", case, scratch, environment)

        def text_of(name):
            path = case / name
            text = path.read_text() if path.exists() else ""
            return text.replace("@SOURCE@", source).replace("@DATA@", str(data))

        status = run_client(client, shlex.split(text_of("command_line")), text_of("commands"),
                            scratch, environment)
        failed = False
        printed = {"status": status + "\n"}
        for stream in ("stdout", "stderr"):
            text = (scratch / f".{stream}").read_text(errors="backslashreplace")
            for pattern, replacement in filters_of(case):
                text = re.sub(pattern, replacement, text)
            printed[stream] = text.replace(source, "@SOURCE@").replace(str(data), "@DATA@").replace(
                folder, "@SCRATCH@")
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
