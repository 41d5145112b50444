"""The programs that are compared, each as one run on one survey."""

import math
import os
import re
import shutil
import subprocess
from dataclasses import dataclass, field
from pathlib import Path

import h5py
import numpy

from client import Client, write_parameters
from process import Cost, RunFailed, run

CELL_M = 32
FINEST_NODE_M = 0.5
PROJECTION = "set projection utm 31"
STAGES = ("start", "commit", "refine", "BAG")


@dataclass
class Run:
    program: str
    threads: int
    cost: Cost  # of the whole run
    stages: dict = field(default_factory=dict)  # name to Cost
    soundings: int = 0
    nodes: int = 0


@dataclass
class Tools:
    """Where the programs are, and where they work."""
    build: str
    source: str
    work: str

    @property
    def client(self):
        return os.path.join(self.build, "app", "Quarro_Client")

    @property
    def simulator(self):
        return os.path.join(self.build, "simulate", "Quarro_Simulate")

    @property
    def decoder(self):
        return os.path.join(self.build, "bench", "decode_xyz")

    def path(self, name):
        return os.path.join(self.work, name)

    def start_client(self, threads):
        """A client on the grids of the working folder."""
        os.makedirs(self.path("grids"), exist_ok=True)
        template = os.path.join(self.source, "examples", "bag_metadata_north.xml")
        write_parameters(self.path("parameters.xml"), self.path("grids"), template, threads)
        return Client(self.client, self.path("parameters.xml"), self.path("client.log"))

    def told_of_grid(self, key):
        """What the last `show grid` told: "soundings" gives "793710"."""
        told = re.findall(rf"^{key}: (.*)$", open(self.path("client.log")).read(), re.MULTILINE)
        if not told:
            raise RunFailed(f"the client told no {key} of its grid; see {self.path('client.log')}")
        return told[-1]

    def clear(self):
        """Empties the working folder, and lets the disc come to rest."""
        shutil.rmtree(self.work, ignore_errors=True)
        os.makedirs(self.work)
        os.sync()


def grid_survey(client, survey, name):
    return client.do(f"grid {name} {CELL_M} {FINEST_NODE_M}", f"commit 1 {len(survey.lines)}",
                     "synch")


def quarro(tools, survey, threads):
    """From GSF files to a BAG. The grid stays in the working folder."""
    tools.clear()
    client = tools.start_client(threads)
    stages = {"start": client.do("broadcast", "attach 1", f"filelist {survey.file_list}")}
    stages["commit"] = grid_survey(client, survey, "survey")
    stages["refine"] = client.do("refine", "synch")
    stages["BAG"] = client.do("set bbox current", PROJECTION,
                              f"get depth full bag {tools.path('survey.bag')}", "synch")
    client.do("show grid")
    whole = client.exit()
    if int(tools.told_of_grid("lines")) != len(survey.lines):
        raise RunFailed(f"lines failed; see {tools.path('client.log')}")
    nodes = int(re.search(r"into (\d+) nodes", tools.told_of_grid("refined")).group(1))
    return Run("quarro", threads, whole, stages, int(tools.told_of_grid("soundings")), nodes)


def finest_spacing(bag):
    """The least node spacing of a BAG of refined cells, in metres."""
    with h5py.File(bag) as file:
        nodes_per_side = file["BAG_root/varres_metadata"]["dimensions_x"]
    return CELL_M / int(numpy.max(nodes_per_side))


class DecodedSoundings:
    """The soundings of a survey as binary easting, northing, depth, kept beside its lines."""

    def __init__(self, tools, survey):
        self.path = os.path.join(survey.directory, "soundings.bin")
        told = subprocess.run([tools.decoder, self.path, *survey.lines], check=True,
                              capture_output=True, text=True).stdout.split()
        self.count = int(told[0])
        self.bounds = [float(word) for word in told[1:]]

    def region(self, spacing_m):
        west, east, south, north = self.bounds
        edges = (math.floor(west / spacing_m), math.ceil(east / spacing_m),
                 math.floor(south / spacing_m), math.ceil(north / spacing_m))
        return "/".join(f"{edge * spacing_m:.9f}" for edge in edges)


def gmt(tools, soundings, module, spacing_m):
    """`gmt blockmedian` or `gmt blockmean`, with its defaults, on blocks as wide as the finest nodes."""
    tools.clear()
    output = tools.path("blocks.bin")
    cost = run(["gmt", module, soundings.path, "-bi3d", "-bo3d", "-r", f"-I{spacing_m:.12f}",
                f"-R{soundings.region(spacing_m)}", "--GMT_HISTORY=false"], output)
    nodes = os.path.getsize(output) // 24
    return Run(module, 1, cost, {}, soundings.count, nodes)


def reload(tools, survey, runs):
    """Wall time of loading a grid in a new process, run by run, and the grid's number of cells."""
    tools.clear()
    client = tools.start_client(os.cpu_count())
    client.do("broadcast", "attach 1", f"filelist {survey.file_list}")
    grid_survey(client, survey, "sparse")
    client.exit()
    costs = []
    for _ in range(runs):
        client = tools.start_client(os.cpu_count())
        client.do("broadcast", "attach 1")
        costs.append(client.do("grid sparse").wall_s)
        client.do("show grid")
        client.exit()
    return costs, int(tools.told_of_grid("cells").split()[0])


def box_against_whole(tools, threads, runs):
    """Wall times of `get` of a box of 1 % and of the whole, of the grid that `quarro` has left.

    Keys are (text or BAG, "box" or "whole").
    """
    costs = {}
    client = tools.start_client(threads)
    client.do("broadcast", "attach 1", "grid survey", "set bbox current", PROJECTION, "show grid")
    west, south, east, north = (float(word) for word in tools.told_of_grid("bounds").split())
    east_m, north_m = (west + east) / 2, (south + north) / 2
    half_east_m, half_north_m = (east - west) / 20, (north - south) / 20
    box = (f"{east_m - half_east_m:.3f} {north_m - half_north_m:.3f} "
           f"{east_m + half_east_m:.3f} {north_m + half_north_m:.3f}")
    for _ in range(runs):
        for form, words in (("text", "get depth full"), ("BAG", "get depth full bag")):
            for part, bounds in (("box", box), ("whole", "")):
                # A file anew each time: taking the place of a large one costs time of its own.
                file = Path(tools.path("part." + form))
                file.unlink(missing_ok=True)
                cost = client.do(f"{words} {bounds} {file}", "synch")
                costs.setdefault((form, part), []).append(cost.wall_s)
    client.exit()
    return costs
