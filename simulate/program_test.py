#!/usr/bin/env python3
"""Quarro_Simulate as a program: what it leaves where files may not grow, and its true depths read
as a raster by GDAL. Skipped where GDAL is missing, once the rest has passed.

  program_test.py SIMULATE
"""

import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77


def check(good, text):
    if not good:
        sys.exit(f"program_test.py: {text}")


def run(program, *words, **options):
    return subprocess.run([program, *map(str, words)], capture_output=True, text=True, check=False,
                          **options)


def files_may_not_grow(simulate, folder):
    """A line cut short is an error with its cause, not a signal, and leaves no file."""
    lines = os.path.join(folder, "lines")
    ran = run(simulate, "--output", lines, "--lines", 2,
              preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000)))
    check(ran.returncode == 1, f"ended with {ran.returncode}, not with 1")
    check("cannot be written: File too large" in ran.stderr, f"told \"{ran.stderr}\"")
    check(os.listdir(lines) == [], f"left {os.listdir(lines)}")


def raster_of_truth(simulate, folder, spacing, place):
    """The command of the manual makes a raster, north up, whose pixels have the truth's depths."""
    from osgeo import gdal, osr
    truth = os.path.join(folder, "truth.xyz")
    ran = run(simulate, "--truth", truth, "--truth-spacing", spacing, "--lines", 1,
              "--line-length", 1 + 20 * spacing, "--depth", 20, "--slope", 0.5, "--swath", 20,
              "--noise", 0, "--overwrite", *place)
    check(ran.returncode == 0, ran.stderr)
    code = re.search(r"\(EPSG:(\d+)\)", ran.stdout)
    check(code, f"no EPSG code in \"{ran.stdout}\"")
    raster = os.path.join(folder, "truth.tif")
    made = run("gdal_translate", "-a_srs", f"EPSG:{code[1]}", truth, raster)
    check(made.returncode == 0 and not made.stderr, f"spacing {spacing}: {made.stderr}")

    gdal.UseExceptions()
    data = gdal.Open(raster)
    west, width, _, north, _, height = data.GetGeoTransform()
    check(abs(width - spacing) < 1e-6 and abs(height + spacing) < 1e-6,
          f"pixels of {width} by {height} m, not {spacing} by -{spacing}")
    check(osr.SpatialReference(data.GetProjection()).GetAuthorityCode(None) == code[1],
          "another projection")
    depths = data.ReadAsArray()
    with open(truth, encoding="ascii") as text:
        nodes = [tuple(map(float, line.split())) for line in text]
    check(len(nodes) == depths.size, f"{depths.size} pixels of {len(nodes)} nodes")
    for easting, northing, depth in nodes:
        column, row = (easting - west) / width - 0.5, (northing - north) / height - 0.5
        check(abs(column - round(column)) < 0.01 and abs(row - round(row)) < 0.01,
              f"{easting} {northing} is no pixel's middle")
        check(abs(depths[round(row), round(column)] - depth) < 0.0006,
              f"{easting} {northing} has {depths[round(row), round(column)]}, not {depth}")


def main():
    simulate = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory(prefix="quarro_program_") as folder:
        files_may_not_grow(simulate, folder)
        try:
            import osgeo  # noqa: F401
        except ImportError:
            osgeo = None
        if osgeo is None or not shutil.which("gdal_translate"):
            print("skipped: gdal_translate or Python's osgeo is missing; Debian has them as "
                  "gdal-bin and python3-gdal")
            return SKIPPED
        south = ("--latitude", -33.9, "--longitude", 151.3)
        for spacing in (10.0, 1.0, 0.3333, 0.333333333333, 0.0625, 2.5):
            raster_of_truth(simulate, folder, spacing, ())
            raster_of_truth(simulate, folder, spacing, south)
    return 0


if __name__ == "__main__":
    sys.exit(main())
