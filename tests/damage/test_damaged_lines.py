#!/usr/bin/env python3
"""Commits a line damaged in every way that damage_gsf knows, each to a grid of its own before two
good lines, and judges what came of it: what is told, what is refused, and that the grid is the same
to the byte as with what the damage left of the line (without the line where it took all).

  test_damaged_lines.py CLIENT SIMULATE DAMAGE_GSF
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

BEAMS = 32
PINGS = 31
LOST = 3  # pings, in the ways that damage a few
INCOMPLETE = ("in a ping without depth, across- and along-track arrays or their scale factors")
OFF_GLOBE = "from a ship position or heading off the globe"
IMPOSSIBLE = "without a possible depth and offset"
# Far from 0, 0 and its projection zone, so that a line placed there shows; with errors other than
# those of the uncertainty model, so that it shows where the model takes their place, and a swath
# narrow enough for the model to give no beam more than a cell.
SURVEY = ("--latitude", 42, "--longitude", -70, "--swath", 110, "--vertical-fixed", 0.3,
          "--horizontal-fixed", 0.4)
CUT = r"a record of \d+ bytes runs past the end of the file"
OTHERS = rf" \(and {LOST - 1} more\)"


class Expected:
    """failed: why the line is refused. remark: what is told of a line taken in part, None for
    nothing. refused: beams of the damaged pings and the reason that the account gives. read: pings
    of which beams were read."""

    def __init__(self, failed=None, remark=None, refused=None, read=PINGS):
        self.failed = failed
        self.remark = remark
        self.refused = refused
        self.read = read


def incomplete(remark, beams=LOST * BEAMS):
    return Expected(remark=remark + OTHERS, refused=(beams, INCOMPLETE))


def without_errors(remark):
    return Expected(remark=remark + ": it is left out" + OTHERS)


def off_globe(pings=LOST):
    return Expected(refused=(pings * BEAMS, OFF_GLOBE))


EXPECTED = {
    "zero-length": Expected(failed="is empty"),
    "text": Expected(failed="is not a GSF file: it does not begin with a GSF header record"),
    "header-alone": Expected(failed="holds no whole ping"),
    "truncated-last-record": Expected(remark=CUT, read=PINGS - 1),
    "truncated-first-words": Expected(remark="the file ends within a record's first words",
                                      read=PINGS - 1),
    "truncated-first-ping": Expected(failed="holds no whole ping: at byte \\d+: " + CUT),
    "record-size-past-end": Expected(
        remark="a record of 4294967280 bytes runs past the end of the file", read=PINGS // 2),
    "zeros": Expected(remark="zeros stand in place of records", read=PINGS // 2),
    "subrecord-size-past-end": incomplete(
        r"a subrecord \(2\) of 16777215 bytes runs past the end of its ping"),
    "no-beams": Expected(read=PINGS - LOST),
    "negative-beams": Expected(remark="a ping tells -1 beams" + OTHERS, read=PINGS - LOST),
    "beams-without-arrays": incomplete(r"the beam flags of \d+ bytes do not fit 32767 beams",
                                       LOST * 32767),
    "depth-multiplier-0": incomplete("the depth array has no scale factor other than 0"),
    "across-multiplier-0": incomplete("the across-track array has no scale factor other than 0"),
    "along-multiplier-0": incomplete("the along-track array has no scale factor other than 0"),
    "vertical-error-size": without_errors(
        rf"the vertical-error array of \d+ bytes does not fit {BEAMS} beams"),
    "vertical-error-multiplier-0": without_errors(
        "the vertical-error array has no scale factor other than 0"),
    "horizontal-error-size": without_errors(
        rf"the horizontal-error array of \d+ bytes does not fit {BEAMS} beams"),
    "horizontal-error-multiplier-0": without_errors(
        "the horizontal-error array has no scale factor other than 0"),
    "before-scale-factors": incomplete("the depth array has no scale factor other than 0"),
    "scale-factor-count": incomplete(
        r"a scale-factor subrecord of \d+ bytes cannot hold what it counts"),
    "array-size": incomplete(rf"the depth array of \d+ bytes does not fit {BEAMS} beams"),
    "flags-size": incomplete(rf"the beam flags of {BEAMS + 1} bytes do not fit {BEAMS} beams"),
    "longitude-off-globe": off_globe(),
    "latitude-off-globe": off_globe(),
    "start-off-globe": off_globe(),
    "start-at-0-0-no-beams": Expected(read=PINGS - LOST),
    "start-at-0-0-ping-flags": Expected(),
    "start-at-0-0-beam-flags": Expected(),
    "start-at-0-0-heading": off_globe(),
    "start-at-0-0-depths-0": Expected(refused=(LOST * BEAMS, IMPOSSIBLE)),
    "all-off-globe": off_globe(PINGS),
}


def run(*command):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True,
                          text=True).stdout


def grid_of(client, lines, name):
    """Grids the lines in this order; gives the engine's messages, and the results as text."""
    commands = ["broadcast", "attach 1", f"grid {name} 16 1"] + [f"add {line}" for line in lines]
    commands += ["synch", "refine", "set bbox current", f"get depth full {name}.depth",
                 f"get hypotheses full {name}.hypotheses", f"get resolution {name}.resolution",
                 "synch", "show grid", "exit"]
    done = subprocess.run([str(client), "--local", "--debug-level", "2", "params.xml"],
                          input="\n".join(commands) + "\n", capture_output=True, text=True,
                          timeout=300, check=False)
    assert done.returncode == 0, f"the client ended with {done.returncode}:\n{done.stderr}"
    assert "grid refined OK." in done.stderr, done.stderr
    results = [pathlib.Path(f"{name}.{kind}") for kind in ("depth", "hypotheses", "resolution")]
    assert all(result.exists() for result in results), f"no results:\n{done.stderr}"
    return done.stderr, [result.read_bytes() for result in results]


def messages_of(log, line):
    return [message for message in log.splitlines() if f'"{line}"' in message]


def judge_failed(expected, line, messages):
    wanted = rf'line 0 "{line}" failed: "{line}" {expected.failed}$'
    assert any(re.search(wanted, message) for message in messages), messages


def judge_account(expected, line, messages):
    account = next((found for message in messages if (found := re.search(
        rf'line 0 "{line}": read (\d+) beams of \d+ pings: (\d+) flagged, (\d+) refused(.*), '
        r"(\d+) offered, (\d+) used", message))), None)
    assert account, messages
    read, flagged, refused = (int(account[i]) for i in (1, 2, 3))
    offered, used = int(account[5]), int(account[6])
    assert read == flagged + refused + offered and used == offered, account[0]
    beams, reason = expected.refused or (0, None)
    assert refused == beams, account[0]
    assert reason is None or f"{beams} {reason}" in account[4], account[0]
    whole = (expected.read - beams // BEAMS) if beams <= PINGS * BEAMS else expected.read - LOST
    assert offered + flagged == whole * BEAMS, account[0]


def judge_remark(expected, line, messages):
    told = [message for message in messages if f'line 0 "{line}": at byte' in message]
    if expected.remark is None:
        assert not told, told
        return
    assert len(told) == 1, messages
    assert re.search(rf'line 0 "{line}": at byte \d+: {expected.remark}$', told[0]), told


def judge(client, damage, way, references):
    """Raises AssertionError when what came of the damage is not what is expected."""
    expected = EXPECTED[way]
    line, rest = pathlib.Path(f"{way}.gsf"), pathlib.Path(f"{way}.rest.gsf")
    run(damage, way, "lines/line_001.gsf", line)
    run(damage, "--rest", way, "lines/line_001.gsf", rest)
    good = ["lines/line_002.gsf", "lines/line_003.gsf"]

    log, results = grid_of(client, [line] + good, way)
    messages = messages_of(log, line)
    if expected.failed:
        judge_failed(expected, line, messages)
    else:
        judge_account(expected, line, messages)
        judge_remark(expected, line, messages)
    for other in good:
        assert not any("failed" in message for message in messages_of(log, other)), log

    kept = rest.read_bytes() if rest.exists() else b""
    if kept not in references:
        lines = ([rest] if kept else []) + good
        references[kept] = grid_of(client, lines, f"rest_{len(references)}")[1]
    assert results == references[kept], f"{way}: the grid is not that of the undamaged pings"


def main(client, simulate, damage):
    client, simulate, damage = (pathlib.Path(path).resolve() for path in (client, simulate, damage))
    failures = 0
    with tempfile.TemporaryDirectory(prefix="quarro_damage_") as scratch:
        os.chdir(scratch)
        pathlib.Path("params.xml").write_text("<parameters/>")
        run(simulate, "--output", "lines", "--lines", 3, "--line-length", 60, "--depth", 20,
            "--beams", BEAMS, "--ping-rate", 2, "--seed", 7, *SURVEY)
        ways = [line.split()[0] for line in run(damage, "--list").splitlines()]
        assert sorted(ways) == sorted(EXPECTED), "a way has no expectation, or the other way round"
        references = {}
        for way in ways:
            try:
                judge(client, damage, way, references)
                print(f"as expected: {way}")
            except (AssertionError, OSError, subprocess.SubprocessError) as failure:
                failures += 1
                print(f"NOT AS EXPECTED: {way}: {failure}")
        os.chdir("/")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
