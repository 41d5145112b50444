#!/usr/bin/python3
"""Judges large BAG files of the writer: their memory does not grow with the rows, GDAL reads them.

  judge_large.py PROGRAM

PROGRAM (large_bag) writes a surface of 10,000 m east-west at 1 m twice: with few rows, and with
10,000 m north-south. Writes up to 1 GB in the current folder and removes what it wrote.

Exit status: 0 all is right, 1 something is wrong (told on standard error), 77 a reader is missing.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import time

SKIPPED = 77

try:
    import numpy as np
    from osgeo import gdal, osr
except ImportError as missing:
    print(f"skipped: {missing} (python3-gdal and python3-numpy are needed)")
    sys.exit(SKIPPED)

gdal.UseExceptions()
osr.UseExceptions()

NULL = np.float32(1000000.0)
# As large_bag.cc has them.
SIDE, SPACING, BLOCKS, WEST, SOUTH = 50, 50.0, 64, 300000.0, 4700000.0
COLUMNS, FEW_ROWS, ROWS = 200, 25, 200
# What the allocator and the sampling of a peak make uncertain; 175 rows more are 1.7 GiB of data.
GROWTH_ALLOWED_KIB = 1024


def block_of(row, column):
    return (7 * row + column) % BLOCKS


def block_values(block):
    """Elevation and uncertainty of a block's nodes, south row first."""
    number = (block * SIDE * SIDE + np.arange(SIDE * SIDE, dtype=np.uint32)).reshape(SIDE, SIDE)
    noise = number * np.uint32(2654435761)
    depth = np.float32(40) + (noise >> 14).astype("<f4") / np.float32(262144)
    variance = np.float32(0.0078125) + (noise >> 20).astype("<f4") / np.float32(262144)
    hole = number % 97 == 0
    return np.where(hole, NULL, -depth), np.where(hole, NULL, np.sqrt(variance))


def write(program, rows, path):
    run = subprocess.run([program, str(rows), str(COLUMNS), path], capture_output=True, text=True,
                         check=False)
    if run.returncode != 0:
        sys.exit(f"{program} failed: {run.stderr.strip()}")
    told = json.loads(run.stdout)
    told["growth_kib"] = told["kib_peak"] - told["kib_before"]
    print(f"{rows} x {COLUMNS} cells of {SIDE} x {SIDE} nodes: {told['seconds']:.1f} s, "
          f"{told['layer_bytes'] / told['seconds'] / 1e6:.0f} MB/s of layer data, "
          f"{told['file_bytes'] / 1e6:.1f} MB of {told['layer_bytes'] / 1e6:.1f} MB, "
          f"peak anonymous memory {told['growth_kib']} KiB above that before")
    return told


def judge(path, rows):
    """What GDAL says of the file; the faults."""
    faults = []

    def check(right, fault):
        if not right:
            faults.append(fault)

    low = gdal.OpenEx(path, open_options=["MODE=LOW_RES_GRID"])
    check((low.RasterXSize, low.RasterYSize) == (COLUMNS, rows), "size of the low-resolution grid")
    wanted = osr.SpatialReference()
    wanted.ImportFromEPSG(32619)
    system = low.GetSpatialRef().Clone()
    system.StripVertical()
    check(system.IsSame(wanted), "the coordinate system is not EPSG:32619")
    blocks = block_of(*np.mgrid[0:rows, 0:COLUMNS])
    check((low.GetRasterBand(1).ReadAsArray()[::-1] == -(40 + blocks / 64)).all(), "elevation")

    listing = gdal.OpenEx(path, open_options=["MODE=LIST_SUPERGRIDS"]).GetMetadata("SUBDATASETS")
    check(len(listing) == 2 * rows * COLUMNS, f"{len(listing) // 2} supergrids listed")
    for row, column in ((0, 0), (rows - 1, COLUMNS - 1), (rows // 2, 17), (rows - 1, 0)):
        grid = gdal.Open(f'BAG:"{path}":supergrid:{row}:{column}')
        got = [grid.GetRasterBand(i).ReadAsArray()[::-1] for i in (1, 2)]
        check(np.array_equal(got, block_values(block_of(row, column))),
              f"values of supergrid {row},{column}")

    resampled = gdal.OpenEx(path, open_options=["MODE=RESAMPLED_GRID", "RESX=1", "RESY=1"])
    check((resampled.RasterXSize, resampled.RasterYSize) == (COLUMNS * SIDE, rows * SIDE),
          f"resampled size {resampled.RasterXSize} x {resampled.RasterYSize}")
    # Across corners where four cells meet, at the edges and in the middle.
    for row in (0, rows // 2, rows - 2):
        for column in (0, COLUMNS // 2, COLUMNS - 2):
            top = (rows - row - 2) * SIDE
            got = [resampled.GetRasterBand(i).ReadAsArray(column * SIDE, top, 2 * SIDE,
                                                          2 * SIDE)[::-1] for i in (1, 2)]
            values = [[block_values(block_of(row + i, column + j)) for j in (0, 1)] for i in (0, 1)]
            for band in (0, 1):
                check(np.array_equal(got[band], np.block([[values[i][j][band] for j in (0, 1)]
                                                          for i in (0, 1)])),
                      f"band {band + 1} of the resampled grid at cell {row},{column}")
    return faults


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("--sanitized", action="store_true",
                        help="memory is a sanitizer's too and says nothing")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="judge_large.", dir=".") as folder:
        path = os.path.join(folder, "large.bag")
        few = write(arguments.program, FEW_ROWS, path)
        many = write(arguments.program, ROWS, path)
        faults = []
        grows = many["growth_kib"] > few["growth_kib"] + GROWTH_ALLOWED_KIB
        if grows and not arguments.sanitized:
            faults.append(f"memory grows with the rows: {few['growth_kib']} KiB with {FEW_ROWS}, "
                          f"{many['growth_kib']} KiB with {ROWS}")
        start = time.monotonic()
        faults += judge(path, ROWS)
        print(f"GDAL {gdal.__version__} read it in {time.monotonic() - start:.1f} s")
    for fault in faults:
        print(f"large.bag: {fault}", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
