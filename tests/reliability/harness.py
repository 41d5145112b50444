"""What the reliability tests share: surveys, clients that run on them, and comparisons of results.

Each runner takes CLIENT SIMULATE SOURCE, the paths of the two programs and of the source root. It
prints figures, and writes them to the file that QUARRO_REPORT names; QUARRO_LONG=1 asks for its
long form, QUARRO_SEED for another seed than the usual one.
"""

import hashlib
import os
import pathlib
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

SKIPPED = 77
LIMIT_S = 1800
DATE = re.compile(rb"\d{4}-\d\d-\d\d(T\d\d:\d\d:\d\d(\.\d{6})?)?")


class Failed(Exception):
    """What was promised did not hold; says what."""


def check(condition, text):
    if not condition:
        raise Failed(text)


class Programs:
    def __init__(self, arguments):
        paths = [pathlib.Path(argument).resolve() for argument in arguments[:3]]
        self.client, self.simulate, self.source = paths
        self.sanitized = "--sanitized" in arguments


LONG = os.environ.get("QUARRO_LONG", "") not in ("", "0")
SEED = int(os.environ.get("QUARRO_SEED", "20260101"))


def figure(text):
    """Tells a figure on the console and in the report."""
    print(text, flush=True)
    report = os.environ.get("QUARRO_REPORT")
    if report:
        with open(report, "a", encoding="utf-8") as file:
            file.write(text + "\n")


def main(name, run):
    """Runs `run(programs, scratch, random)` in a scratch directory of its own."""
    programs = Programs(sys.argv[1:])
    figure(f"{name}: {'long' if LONG else 'short'} form, seed {SEED}")
    began = time.monotonic()
    with tempfile.TemporaryDirectory(prefix=f"quarro_{name}_") as scratch:
        try:
            status = run(programs, pathlib.Path(scratch), random.Random(SEED)) or 0
        except Failed as failure:
            figure(f"{name}: FAILED: {failure}")
            status = 1
    figure(f"{name}: {'skipped' if status == SKIPPED else 'ended'} after "
           f"{time.monotonic() - began:.1f} s")
    sys.exit(status)


def simulate(programs, folder, **options):
    """Simulated lines as GSF; gives their paths in the order of the survey."""
    command = [programs.simulate, "--output", folder]
    for name, value in options.items():
        command += ["--" + name.replace("_", "-"), str(value)]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return sorted(pathlib.Path(folder).glob("*.gsf"))


def write_parameters(programs, path, **engine):
    """The parameter file with these keys in section Engine; a value that is a dictionary holds the
    keys of a section of its own."""
    template = f"{programs.source}/examples/bag_metadata_north.xml"
    sections = {name: keys for name, keys in engine.items() if isinstance(keys, dict)}
    sections["Engine"] = {key: value for key, value in engine.items() if key not in sections}
    sections["ClientServer"] = {"BAGMetadataTemplate": template}
    lines = ["<parameters>"]
    for section, keys in sections.items():
        lines.append(f'  <section name="{section}">')
        lines += [f'    <parameter key="{key}">{value}</parameter>' for key, value in keys.items()]
        lines.append("  </section>")
    path.write_text("\n".join([*lines, "</parameters>"]) + "\n")


class Client:
    """One run of the client in `folder`, on these commands and then on what is typed.

    Standard error, standard output and the messages of background work go to files there, so that
    what was told before a sudden end is known.
    """

    def __init__(self, programs, folder, commands, prefix=(), prepare=None, typing=False,
                 **engine):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        params = self.folder / "params.xml"
        write_parameters(programs, params, **engine)
        self.messages_path = self.folder / "messages.txt"
        self.messages_path.unlink(missing_ok=True)
        commands = "\n".join(["broadcast", "attach 1", *commands]) + "\n"
        (self.folder / "typed").write_text(commands)
        with open(self.folder / "typed", "rb") as typed, \
                open(self.folder / "stdout", "wb") as out, \
                open(self.folder / "stderr", "wb") as err:
            self.process = subprocess.Popen(
                [*prefix, programs.client, "--local", "-a", "messages.txt", "-f", "params.xml"],
                stdin=subprocess.PIPE if typing else typed, stdout=out, stderr=err,
                cwd=self.folder, preexec_fn=prepare)
        if typing:
            self.type(commands)

    def type(self, text):
        self.process.stdin.write(text.encode())
        self.process.stdin.flush()

    def told(self):
        """Standard error so far."""
        return (self.folder / "stderr").read_text(errors="backslashreplace")

    def messages(self):
        """Messages of background work so far."""
        path = self.messages_path
        return path.read_text(errors="backslashreplace") if path.exists() else ""

    def wait(self, limit_s=LIMIT_S):
        if self.process.stdin:
            self.process.stdin.close()
        try:
            return self.process.wait(limit_s)
        except subprocess.TimeoutExpired:
            self.kill()
            raise Failed(f"the client did not end in {limit_s} s; it told:\n{self.told()}\n"
                         f"{self.messages()}") from None

    def wait_for(self, condition, limit_s=LIMIT_S):
        """Waits until the condition holds or the client has ended; gives whether it holds."""
        end = time.monotonic() + limit_s
        while not condition(self):
            if self.process.poll() is not None:
                return condition(self)
            check(time.monotonic() < end, f"waited {limit_s} s in vain; it told:\n{self.told()}")
            time.sleep(0.001)
        return True

    def kill(self, number=signal.SIGKILL):
        if self.process.poll() is None:
            self.process.send_signal(number)
        return self.process.wait()


# How often the moment of a sudden end is drawn at most.
DRAWS = 8


def earlier_moments(delay_s):
    """Delays to try one after another until a client is met at work: each half of the one before, for
    a machine that has become faster since the delay was drawn; the last is none."""
    return [delay_s / 2**draw for draw in range(DRAWS - 1)] + [0]


def check_enough(ended, wanted, what):
    """Most of the sudden ends that were wanted came while the client was at work."""
    check(2 * ended > wanted, f"only {ended} of {wanted} runs were {what}: the others ended by "
                              "themselves before")


TROUBLE = re.compile(r"^.*(\bfailed\b|\berror\b|no grid).*$", re.MULTILINE)


def run_client(programs, folder, commands, trouble=False, **options):
    """Runs the commands to their end; the client must end well, and without `trouble` it must tell
    of none."""
    client = Client(programs, folder, [*commands, "exit"], **options)
    status = client.wait()
    check(status == 0, f"the client ended with {status}; it told:\n{client.told()}\n"
                       f"{client.messages()}")
    told = TROUBLE.search(client.told() + client.messages())
    check(trouble or not told, f"the client told: {told.group(0) if told else ''}")
    return client


RESULTS = ["resolution.txt", "depth_low.txt", "depth_full.txt", "hypotheses_low.txt",
           "hypotheses_full.txt", "low.bag", "full.bag"]


def get_all():
    """Commands that ask for every kind of result over the whole grid and wait for the files."""
    return ["set bbox current", "set projection utm 31", "get resolution resolution.txt",
            "get depth low depth_low.txt", "get depth full depth_full.txt",
            "get hypotheses low hypotheses_low.txt", "get hypotheses full hypotheses_full.txt",
            "get depth low bag low.bag", "get depth full bag full.bag", "synch"]


def content(path):
    """A result file's bytes; a BAG's without the dates of its metadata."""
    data = pathlib.Path(path).read_bytes()
    return DATE.sub(b"", data) if str(path).endswith(".bag") else data


def digests(folder, names=RESULTS):
    """Digest by name of the result files in the folder; all must be there."""
    found = {}
    for name in names:
        path = pathlib.Path(folder) / name
        check(path.exists() and path.stat().st_size > 0, f"{path} is missing or empty")
        found[name] = hashlib.sha256(content(path)).hexdigest()
    return found


def check_same(folder, reference, what):
    found = digests(folder, reference.keys())
    other = [name for name in reference if found[name] != reference[name]]
    check(not other, f"{what}: {', '.join(other)} differ from those of the reference in "
                     f"{folder}")


def store_rows(grid_folder, *queries):
    """The rows that the queries give on a copy of a grid that no process has open."""
    rows = []
    with tempfile.TemporaryDirectory(prefix="quarro_store_") as copy:
        for path in pathlib.Path(grid_folder).iterdir():
            shutil.copy(path, copy)
        database = sqlite3.connect(os.path.join(copy, "grid.sqlite"))
        try:
            for query in queries:
                rows.append(database.execute(query).fetchall())
        finally:
            database.close()
    return rows if len(queries) > 1 else rows[0]


def lines_in_store(grid_folder):
    """Names and soundings of the lines in a grid that no process has open, in their order; each
    line's blocks must hold all of its soundings."""
    lines, blocks = store_rows(
        grid_folder, "SELECT sequence, name, soundings FROM lines ORDER BY sequence",
        "SELECT line, SUM(LENGTH(data)) / 16 FROM soundings GROUP BY line")
    held = dict(blocks)
    for sequence, name, soundings in lines:
        check(held.pop(sequence, 0) == soundings, f"line {sequence} ({name}) is not whole")
    check(not held, f"soundings of lines {sorted(held)}, which are not in the grid")
    check([line[0] for line in lines] == list(range(1, len(lines) + 1)), "lines are missing")
    return [(name, soundings) for _, name, soundings in lines]


def changed_cells(grid_folder):
    """How many cells lines changed since the last refinement, by the store."""
    return store_rows(grid_folder, "SELECT COUNT(*) FROM changed_cells")[0][0]


def write_filelist(folder, lines):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "lines.txt").write_text("".join(f"{line}\n" for line in lines))


def ignore_nothing():
    """Gives the client the usual reaction to every signal, whatever this process inherited."""
    for number in (signal.SIGINT, signal.SIGPIPE, signal.SIGXFSZ):
        signal.signal(number, signal.SIG_DFL)
