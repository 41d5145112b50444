"""The programs as the network tests run them: engine daemons, consoles, and machines of their own."""

import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import xml.etree.ElementTree as ElementTree

SKIPPED = 77
LONG = os.environ.get("QUARRO_LONG", "") not in ("", "0") or "--long" in sys.argv
SANITIZED = "--sanitized" in sys.argv
PATIENCE = 5 if SANITIZED else 1  # instrumented programs take so many times as long
START_S = 60  # for a daemon or a client to come up on a busy machine
END_S = 60


class Failed(Exception):
    """What a test found wrong."""


def check(condition, what):
    if not condition:
        raise Failed(what)


def report(line):
    """A figure for the reader, also in the file that QUARRO_REPORT names."""
    print("  " + line, flush=True)
    path = os.environ.get("QUARRO_REPORT")
    if path:
        with open(path, "a") as file:
            file.write("network: " + line + "\n")


def free_udp_port():
    """A port for the discovery of one test, so that tests do not find each other's engines."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def free_tcp_port():
    """For an engine that comes back at the place where it was: its TCP and UDP numbers are free."""
    while True:
        port = free_udp_port()
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue


def write_parameters(path, *sections):
    """Writes sections {name: {key: value}} to a parameter file, into what it holds already."""
    path = pathlib.Path(path)
    root = ElementTree.fromstring(path.read_text()) if path.exists() else ElementTree.Element("parameters")
    for section in sections:
        for name, keys in section.items():
            element = root.find(f"section[@name='{name}']")
            if element is None:
                element = ElementTree.SubElement(root, "section", name=name)
            for key, value in keys.items():
                for old in element.findall(f"parameter[@key='{key}']"):
                    element.remove(old)
                ElementTree.SubElement(element, "parameter", key=key).text = str(value)
    path.write_text(ElementTree.tostring(root, encoding="unicode") + "\n")


def wait_for(condition, limit_s, what):
    """The first value of `condition` that is true."""
    end = time.monotonic() + limit_s * PATIENCE
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Failed(f"{what} did not come about within {limit_s:g} s")
        time.sleep(0.02)


class Lines:
    """The lines that a program writes into a file or pipe, gathered by a thread."""

    def __init__(self, pipe):
        self._lines = []
        self._changed = threading.Condition()
        self._ended = False
        self._thread = threading.Thread(target=self._read, args=(pipe,), daemon=True)
        self._thread.start()

    def _read(self, pipe):
        for line in pipe:
            with self._changed:
                self._lines.append((time.monotonic(), line.decode(errors="replace").rstrip("\n")))
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def text(self):
        with self._changed:
            return "\n".join(line for _, line in self._lines)

    def count(self):
        with self._changed:
            return len(self._lines)

    def expect(self, pattern, limit_s, begin=0):
        """Waits for a line in which `pattern` is found, from line number `begin` on. Gives the match and the
        number of the next line."""
        wanted = re.compile(pattern)
        end = time.monotonic() + limit_s * PATIENCE
        number = begin
        with self._changed:
            while True:
                while number < len(self._lines):
                    found = wanted.search(self._lines[number][1])
                    number += 1
                    if found:
                        return found, number
                left = end - time.monotonic()
                if left <= 0 or self._ended:
                    raise Failed(f"no line with \"{pattern}\" within {limit_s:g} s; the program wrote:\n" +
                                 "\n".join(line for _, line in self._lines[-40:]))
                self._changed.wait(left)


class Program:
    """A running program; ended, and its output shown, when a test fails under it."""

    def __init__(self, command, folder, environment=None, machine=None, stdin=None):
        self.command = (machine.prefix() if machine else []) + [str(word) for word in command]
        self.process = subprocess.Popen(self.command, cwd=folder, env=environment, stdin=stdin,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.out = Lines(self.process.stdout) if stdin is None else None
        self.err = Lines(self.process.stderr)

    def pid(self):
        return self.process.pid

    def running(self):
        return self.process.poll() is None

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, limit_s=END_S):
        try:
            return self.process.wait(limit_s * PATIENCE)
        except subprocess.TimeoutExpired:
            raise Failed(f"{shlex.join(self.command)} did not end within {limit_s:g} s") from None

    def kill(self):
        if self.running():
            self.process.kill()
        self.process.wait()

    def __enter__(self):
        return self

    def __exit__(self, kind, failure, trace):
        if kind is not None and kind is not SystemExit:
            print(f"--- {shlex.join(self.command)}\n{self.err.text()}", flush=True)
        self.kill()


class Server(Program):
    """Quarro_Server, taking requests once it is constructed."""

    def __init__(self, program, parameters, folder, options=(), **how):
        super().__init__([program, *options, parameters], folder, **how)
        try:
            found, _ = self.out.expect(r"^listening on (\S+) port (\d+)$", START_S)
        except Failed:
            self.kill()
            raise Failed(f"the server did not come up:\n{self.err.text()}") from None
        self.address, self.port = found.group(1), int(found.group(2))

    def end(self):
        """Ends it as a service manager does; it must leave in good order."""
        self.signal(signal.SIGTERM)
        status = self.wait()
        check(status == 0, f"the server ended with status {status}:\n{self.err.text()}")

    def memory_kib(self, field="RssAnon"):
        for line in pathlib.Path(f"/proc/{self.pid()}/status").read_text().splitlines():
            if line.startswith(field + ":"):
                return int(line.split()[1])
        raise Failed(f"no {field} of the server")

    def computed_s(self):
        """The processor time that it has taken."""
        fields = pathlib.Path(f"/proc/{self.pid()}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Console(Program):
    """Quarro_Client driven through its standard input, as a person would who waits for each answer.

    The command `nothing` is no command: the client's complaint about it tells that everything before is done."""

    def __init__(self, program, parameters, folder, options=(), **how):
        super().__init__([program, *options, "-f", parameters], folder, stdin=subprocess.PIPE, **how)
        self.out = Lines(self.process.stdout)
        self._next = 0

    def type(self, *commands):
        for command in commands:
            self.process.stdin.write((command + "\n").encode())
        self.process.stdin.flush()

    def expect(self, pattern, limit_s=60.0):
        """Waits for a message after those expected before."""
        found, self._next = self.err.expect(pattern, limit_s, self._next)
        return found

    def has(self, text):
        """Whether there is such a message after those expected before."""
        return any(text in line for line in self.err.text().splitlines()[self._next:])

    def do(self, command, pattern, limit_s=60.0):
        """Types a command and waits for the message that ends it."""
        self.type(command)
        return self.expect(pattern, limit_s)

    def is_usable(self, limit_s=10.0):
        """Waits until the prompt takes commands again, which it shows by its answer to one."""
        self.do("attach two", "can't convert \"two\"|you are already attached", limit_s)
        self.expect("command garbled", limit_s)

    def attach(self, limit_s=60.0):
        self.do("broadcast", r"found 1 computational engines", limit_s)
        self.do("attach 1", r"attached OK", limit_s)

    def leave(self, limit_s=END_S):
        self.type("exit")
        status = self.wait(limit_s)
        check(status == 0, f"the client ended with status {status}:\n{self.err.text()}")


class Machine:
    """A network namespace: a machine of its own as far as the network goes. Only for who may make one."""

    def __init__(self):
        self._holder = subprocess.Popen(["unshare", "-n", "sh", "-c", "echo ready; exec sleep 100000"],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        if self._holder.stdout.readline() != b"ready\n":
            raise PermissionError("unshare gave none")
        self.run("ip link set lo up")

    def prefix(self):
        return ["nsenter", "-t", str(self._holder.pid), "-n"]

    def run(self, command):
        done = subprocess.run(self.prefix() + shlex.split(command), capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise PermissionError(f"{command}: {done.stderr.strip()}")

    def link(self, other, name, own_address, other_address):
        """A cable between two machines, called `name` at both ends."""
        self.run(f"ip link add {name} type veth peer name {name} netns {other._holder.pid}")
        for machine, address in ((self, own_address), (other, other_address)):
            machine.run(f"ip address add {address}/24 broadcast + dev {name}")
            machine.run(f"ip link set {name} up")

    def close(self):
        self._holder.kill()
        self._holder.wait()


class Place:
    """The scratch directory of one test, with what every test of an engine on the network needs in it."""

    def __init__(self, programs, name):
        self.client, self.server, self.simulate, self.source = programs
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix=f"quarro_{name}_"))
        self.discovery_port = free_udp_port()
        self.parameters = self.folder / "params.xml"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def clear(self):
        """As it was when it was made."""
        shutil.rmtree(self.folder)
        self.folder.mkdir()

    def write_parameters(self, network=None, engine=None, path=None):
        """The parameter file of servers and clients of this test; given keys go before."""
        keys = {"Port": 0, "DiscoveryPort": self.discovery_port, "DiscoveryWaitMs": 500,
                "DiscoveryAddresses": "127.255.255.255", "SurveyDirectories": self.folder}
        keys.update(network or {})
        keys = {key: value for key, value in keys.items() if value is not None}
        path = path or self.parameters
        write_parameters(path, {"Engine": engine or {}}, {"Network": keys})
        return path

    def start_server(self, parameters=None, options=(), **how):
        return Server(self.server, parameters or self.parameters, self.folder, options, **how)

    def start_client(self, parameters=None, options=(), folder=None, **how):
        return Console(self.client, parameters or self.parameters, folder or self.folder, options, **how)

    def simulate_lines(self, count, *options, output="lines"):
        """Survey lines, and a list of them as the command filelist takes it. Gives their names."""
        done = subprocess.run([self.simulate, "--output", output, "--lines", str(count), *map(str, options)],
                              cwd=self.folder, capture_output=True, text=True, check=False)
        check(done.returncode == 0, done.stderr)
        names = sorted(f"{output}/{path.name}" for path in (self.folder / output).glob("*.gsf"))
        check(len(names) == count, f"{len(names)} lines were simulated")
        (self.folder / f"{output}.txt").write_text("".join(name + "\n" for name in names))
        return names


def programs_of(arguments):
    """The programs that the first four arguments name: client, server, simulator, and the source root."""
    return [str(pathlib.Path(argument).resolve()) for argument in arguments[:4]]


def run_tests(tests, description):
    """Runs the tests named on the command line after the programs, or all; options begin with --.

    usage: TEST.py CLIENT SERVER SIMULATE SOURCE [--long] [--sanitized] [NAME ...]"""
    words = [word for word in sys.argv[5:] if word]
    names = [word for word in words if not word.startswith("--")]
    if len(sys.argv) < 5:
        print(description)
        sys.exit(2)
    programs = programs_of(sys.argv[1:])
    failed, skipped = [], []
    chosen = [test for test in tests if not names or test.__name__ in names]
    check(len(chosen) == (len(names) or len(tests)), f"unknown among {names}: the tests are {[t.__name__ for t in tests]}")
    for test in chosen:
        begin = time.monotonic()
        try:
            with Place(programs, test.__name__) as place:
                test(place)
            outcome = "ok"
        except PermissionError as reason:
            outcome = f"SKIPPED: {reason}"
            skipped.append(test.__name__)
        except Failed as reason:
            outcome = f"FAILED: {reason}"
            failed.append(test.__name__)
        print(f"{test.__name__} ({time.monotonic() - begin:.1f} s): {outcome}", flush=True)
    if failed:
        sys.exit(1)
    if len(skipped) == len(chosen):
        sys.exit(SKIPPED)
