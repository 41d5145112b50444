#!/usr/bin/env python3
"""Judges BAG files with readers that this project did not write: GDAL and HDF5.

  judge_bag.py --samples PROGRAM [--schema FOLDER]    write known grids with PROGRAM, judge them all
  judge_bag.py FILE.bag ... [--epsg N] [--schema FOLDER]    judge files whose values are not known

Exit status: 0 all is right, 1 something is wrong (told on standard error), 77 a reader is missing.
Values are compared exactly unless a comment says otherwise.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

SKIPPED = 77

try:
    import h5py
    import numpy as np
    from osgeo import gdal, osr
except ImportError as missing:
    print(f"skipped: {missing} (python3-gdal, python3-h5py and python3-numpy are needed)")
    sys.exit(SKIPPED)

gdal.UseExceptions()
osr.UseExceptions()

NULL = np.float32(1000000.0)
NULL_INDEX = 0xFFFFFFFF
# Opening a supergrid takes GDAL milliseconds: of a large file this many are opened.
SUPERGRIDS_OPENED = 60

REFINEMENT_METADATA = [
    ("index", "<u4"), ("dimensions_x", "<u4"), ("dimensions_y", "<u4"), ("resolution_x", "<f4"),
    ("resolution_y", "<f4"), ("sw_corner_x", "<f4"), ("sw_corner_y", "<f4")]
REFINEMENT = [("depth", "<f4"), ("depth_uncrt", "<f4")]
NODE = [("hyp_strength", "<f4"), ("num_hypotheses", "<u4")]
REFINEMENT_NODE = NODE + [("n_samples", "<u4")]
# Layer: type, and attributes of the extremes by field.
LAYERS = {
    "elevation": ("<f4", {None: ("Minimum Elevation Value", "Maximum Elevation Value")}),
    "uncertainty": ("<f4", {None: ("Minimum Uncertainty Value", "Maximum Uncertainty Value")}),
    "node": (NODE, {f: (f"min_{f}", f"max_{f}") for f, _ in NODE}),
    "varres_metadata": (REFINEMENT_METADATA,
                        {f: (f"min_{f}", f"max_{f}") for f, _ in REFINEMENT_METADATA[1:5]}),
    "varres_refinements": (REFINEMENT, {"depth": ("min_depth", "max_depth"),
                                        "depth_uncrt": ("min_uncrt", "max_uncrt")}),
    "varres_nodes": (REFINEMENT_NODE, {f: (f"min_{f}", f"max_{f}") for f, _ in REFINEMENT_NODE}),
}


class Verdict:
    """Collects what is wrong with one file."""

    def __init__(self, path):
        self.path = path
        self.faults = []
        self.checks = 0

    def check(self, right, fault):
        self.checks += 1
        if not right:
            self.faults.append(fault)
        return right

    def equal(self, got, wanted, what):
        return self.check(got == wanted, f"{what}: {got!r} instead of {wanted!r}")

    def near(self, got, wanted, tolerance, what):
        close = np.allclose(got, wanted, rtol=0, atol=tolerance)
        return self.check(close, f"{what}: {got} instead of {wanted}")

    def same_array(self, got, wanted, what):
        got, wanted = np.asarray(got), np.asarray(wanted)
        if not self.equal(got.shape, wanted.shape, f"shape of {what}"):
            return
        differ = np.argwhere(got != wanted)
        if not self.check(len(differ) == 0, ""):
            at = tuple(differ[0])
            self.faults[-1] = (f"{what}: {len(differ)} of {got.size} values differ, the first at "
                               f"{at}: {got[at]} instead of {wanted[at]}")


def extremes(values, null):
    """Minimum and maximum without nulls; the null where there is nothing else."""
    kept = values[values != null]
    return (kept.min(), kept.max()) if kept.size else (null, null)


def judge_layer(verdict, root, name, spacings):
    """The layer's type, fill value, storage and stored extremes."""
    layer = root[name]
    dtype, attributes = LAYERS[name]
    verdict.equal(layer.dtype, np.dtype(dtype), f"type of {name}")
    if layer.size:
        verdict.equal((layer.compression, layer.compression_opts), ("gzip", 1),
                      f"compression of {name}")
    null = layer.fillvalue
    data = layer[...]
    for field, names in attributes.items():
        if field is None:
            values, null_value = data, null
        else:
            key = layer.dtype.names[0]
            values, null_value = data[data[key] != null[key]][field], null[field]
            if values.dtype.kind == "u":
                wanted = (values.min(), values.max()) if values.size else (null_value,) * 2
        if values.dtype.kind == "f":
            # Where no cell is refined the finest resolution is that of the grid.
            wanted = extremes(values, null_value if values.size else
                              spacings.get(field, null_value))
        for attribute, value in zip(names, wanted):
            stored = layer.attrs.get(attribute)
            if verdict.check(stored is not None, f"{name} lacks attribute {attribute}"):
                verdict.equal(stored, value, f"{name} attribute {attribute}")
                verdict.equal((stored.dtype, np.shape(stored)), (values.dtype, ()),
                              f"type of {name} attribute {attribute}")


def judge_container(verdict, path, schema):
    """What HDF5 sees: every layer, the cells' runs of nodes end to end, the metadata."""
    transform = gdal.Open(path).GetGeoTransform()
    spacings = {"resolution_x": np.float32(transform[1]), "resolution_y": np.float32(-transform[5])}
    with h5py.File(path, "r") as file:
        root = file["BAG_root"]
        verdict.equal(root.attrs["Bag Version"], b"1.6.2", "Bag Version")
        version_type = root.attrs.get_id("Bag Version").get_type()
        verdict.equal((version_type.get_size(), version_type.get_strpad()),
                      (32, h5py.h5t.STR_NULLTERM), "type of Bag Version")
        for name, length in (("tracking_list", "Tracking List Length"),
                             ("varres_tracking_list", "VR Tracking List Length")):
            if verdict.check(name in root, f"no {name}"):
                verdict.equal((root[name].shape, root[name].maxshape), ((0,), (None,)), name)
                verdict.equal(root[name].attrs[length], 0, length)
                verdict.equal(root[name].attrs[length].dtype, np.dtype("<u4"), f"type of {length}")
        for name in LAYERS:
            if verdict.check(name in root, f"no layer {name}"):
                judge_layer(verdict, root, name, spacings)

        refinements = root["varres_metadata"][...]
        refined = refinements[refinements["index"] != NULL_INDEX]
        sizes = refined["dimensions_x"].astype(np.uint64) * refined["dimensions_y"]
        starts = np.concatenate([[0], np.cumsum(sizes)]).astype(np.uint64)
        verdict.same_array(refined["index"], starts[:-1], "indexes of the refined cells")
        for name in ("varres_refinements", "varres_nodes"):
            verdict.equal(root[name].shape, (1, int(starts[-1])), f"shape of {name}")
        empty = refinements[refinements["index"] == NULL_INDEX]
        verdict.check(np.all(empty == root["varres_metadata"].fillvalue),
                      "a cell without refinement is not null in every field")

        metadata_type = root["metadata"].id.get_type()
        verdict.equal((metadata_type.get_size(), metadata_type.get_strpad()),
                      (1, h5py.h5t.STR_NULLTERM), "type of metadata")
        verdict.equal(root["metadata"].maxshape, (None,), "greatest size of metadata")
        document = b"".join(root["metadata"][...].tolist())
    verdict.check(document.startswith(b"<") and document.rstrip().endswith(b"MI_Metadata>"),
                  "the metadata is not the whole document")
    if schema:
        judge_document(verdict, document, schema)


def judge_document(verdict, document, schema):
    with tempfile.NamedTemporaryFile(suffix=".xml") as copy:
        copy.write(document)
        copy.flush()
        run = subprocess.run(["xmllint", "--nonet", "--noout", "--schema",
                              os.path.join(schema, "bag", "bag.xsd"), copy.name],
                             capture_output=True, text=True, check=False)
    verdict.check(run.returncode == 0, f"metadata is not valid: {run.stderr.strip()}")


def open_band_arrays(path, **options):
    dataset = gdal.OpenEx(path, gdal.OF_RASTER,
                          open_options=[f"{key}={value}" for key, value in options.items()])
    return dataset, [dataset.GetRasterBand(i + 1).ReadAsArray()[::-1] for i in (0, 1)]


def judge_low_resolution(verdict, path, epsg):
    """Coordinate system, stored extremes. Returns the dataset and both bands, south row first."""
    dataset, bands = open_band_arrays(path, MODE="LOW_RES_GRID")
    system = dataset.GetSpatialRef().Clone()
    system.StripVertical()
    if epsg:
        wanted = osr.SpatialReference()
        wanted.ImportFromEPSG(epsg)
        verdict.check(system.IsSame(wanted), f"the coordinate system is not EPSG:{epsg}:\n{system}")
        plain = gdal.OpenEx(path, open_options=["REPORT_VERTCRS=NO"]).GetSpatialRef()
        verdict.check(plain.IsSame(wanted), f"REPORT_VERTCRS=NO is not EPSG:{epsg}:\n{plain}")
    for number, values in enumerate(bands, start=1):
        band = dataset.GetRasterBand(number)
        verdict.equal(band.GetNoDataValue(), float(NULL), f"null of band {number}")
        verdict.equal((band.GetMinimum(), band.GetMaximum()),
                      tuple(float(value) for value in extremes(values, NULL)),
                      f"extremes of band {number}")
    return dataset, bands


def list_supergrids(path):
    dataset = gdal.OpenEx(path, open_options=["MODE=LIST_SUPERGRIDS"])
    names = [name for key, name in dataset.GetMetadata("SUBDATASETS").items()
             if key.endswith("_NAME")]
    return {tuple(int(part) for part in name.split(":")[-2:]): name for name in names}


def judge_known(verdict, path, expected, schema):
    """A file whose every value is known."""
    rows, columns, spacing = expected["rows"], expected["columns"], expected["spacing"]
    west, south = expected["west"], expected["south"]
    sides = np.array(expected["nodes_per_side"])
    zone = expected["utm_zone"]
    judge_container(verdict, path, schema)
    dataset, bands = judge_low_resolution(verdict, path,
                                          32600 + zone if zone > 0 else 32700 - zone)
    verdict.near(dataset.GetGeoTransform(),
                 (west - spacing / 2, spacing, 0, south + (rows - 0.5) * spacing, 0, -spacing),
                 1e-6, "geotransform")
    row, column = np.mgrid[0:rows, 0:columns]
    elevation, uncertainty = values_at(column * spacing, row * spacing, row, column)
    verdict.same_array(bands[0], elevation, "elevation")
    verdict.same_array(bands[1], uncertainty, "uncertainty")

    with h5py.File(path, "r") as file:
        root = file["BAG_root"]
        strength, count = hypotheses(row, column, 0.25 * (column % 8), 1 + row % 3)
        node = root["node"][...]
        verdict.same_array(node["hyp_strength"], strength, "hypothesis strength")
        verdict.same_array(node["num_hypotheses"], count, "hypothesis count")
        cells = root["varres_metadata"][...]
        nodes = root["varres_nodes"][0, :]
    verdict.same_array(cells["index"] != NULL_INDEX, sides > 0, "which cells are refined")
    judge_cells(verdict, cells[sides > 0], spacing / sides[sides > 0], sides[sides > 0])
    supergrids = list_supergrids(path) if (sides > 0).any() else {}
    refined = [(int(r), int(c)) for r, c in np.argwhere(sides > 0)]
    verdict.equal(sorted(supergrids), refined, "cells listed as supergrids")
    step = max(1, len(refined) // SUPERGRIDS_OPENED)
    for r, c in (cell for cell in refined[::step] if cell in supergrids):
        judge_supergrid(verdict, supergrids[r, c], expected, r, c)
    for r, c in refined:
        judge_refinement_nodes(verdict, nodes, cells[r, c], int(sides[r, c]), r, c)
    if (sides > 0).all() and len(np.unique(sides)) == 1:
        judge_resampled(verdict, path, expected, int(sides[0, 0]))


def judge_cells(verdict, cells, resolution, sides):
    """The record of every refined cell: square, its nodes centred in it."""
    for axis in "xy":
        verdict.same_array(cells[f"dimensions_{axis}"], sides, f"dimensions_{axis}")
        verdict.same_array(cells[f"resolution_{axis}"], resolution.astype("<f4"),
                           f"resolution_{axis}")
        verdict.near(cells[f"sw_corner_{axis}"], resolution / 2, 1e-6, f"sw_corner_{axis}")


def values_at(x, y, row, column):
    """The samples' seafloor: elevation and uncertainty at offsets from the south-west node."""
    hole = (7 * row + 3 * column) % 11 == 5
    elevation = (-(20 + x / 64 + y / 128)).astype("<f4")
    uncertainty = (0.125 + x / 4096 + y / 8192).astype("<f4")
    return np.where(hole, NULL, elevation), np.where(hole, NULL, uncertainty)


def hypotheses(row, column, strength, count):
    hole = (7 * row + 3 * column) % 11 == 5
    return np.where(hole, NULL, strength).astype("<f4"), np.where(hole, 0, count)


def judge_supergrid(verdict, name, expected, r, c):
    side, spacing = expected["nodes_per_side"][r][c], expected["spacing"]
    resolution = spacing / side
    dataset, bands = open_band_arrays(name)
    what = f"supergrid {r},{c}"
    verdict.equal((dataset.RasterXSize, dataset.RasterYSize), (side, side), f"size of {what}")
    # The file holds spacings and corners in single precision.
    verdict.near(dataset.GetGeoTransform(),
                 (expected["west"] + (c - 0.5) * spacing, resolution, 0,
                  expected["south"] + (r + 0.5) * spacing, 0, -resolution),
                 1e-5, f"geotransform of {what}")
    i, j = np.mgrid[0:side, 0:side]
    elevation, uncertainty = values_at((c - 0.5) * spacing + (j + 0.5) * resolution,
                                       (r - 0.5) * spacing + (i + 0.5) * resolution,
                                       r * side + i, c * side + j)
    for got, wanted, band in ((bands[0], elevation, "elevation"),
                              (bands[1], uncertainty, "uncertainty")):
        verdict.same_array(got == NULL, wanted == NULL, f"holes of {band} of {what}")
        # Positions of nodes are sums in another order here.
        verdict.near(got, wanted, 4e-6, f"{band} of {what}")


def judge_refinement_nodes(verdict, nodes, cell, side, r, c):
    run = nodes[cell["index"]:cell["index"] + side * side].reshape(side, side)
    i, j = np.mgrid[0:side, 0:side]
    strength, count = hypotheses(r * side + i, c * side + j, 0.5, 1 + i % 2)
    _, samples = hypotheses(r * side + i, c * side + j, 0.5, 5 + j)
    verdict.same_array(run["hyp_strength"], strength, f"hypothesis strength in cell {r},{c}")
    verdict.same_array(run["num_hypotheses"], count, f"hypothesis count in cell {r},{c}")
    verdict.same_array(run["n_samples"], samples, f"sample count in cell {r},{c}")


def judge_resampled(verdict, path, expected, side):
    """One lattice over all cells: every node where it is, no seam, nothing lost at an edge."""
    spacing, resolution = expected["spacing"], expected["spacing"] / side
    dataset, bands = open_band_arrays(path, MODE="RESAMPLED_GRID", RESX=resolution,
                                      RESY=resolution)
    rows, columns = expected["rows"] * side, expected["columns"] * side
    verdict.equal((dataset.RasterXSize, dataset.RasterYSize), (columns, rows), "resampled size")
    verdict.near(dataset.GetGeoTransform(),
                 (expected["west"] - spacing / 2, resolution, 0,
                  expected["south"] + (expected["rows"] - 0.5) * spacing, 0, -resolution),
                 1e-6, "resampled geotransform")
    i, j = np.mgrid[0:rows, 0:columns]
    elevation, uncertainty = values_at((j + 0.5) * resolution - spacing / 2,
                                       (i + 0.5) * resolution - spacing / 2, i, j)
    verdict.same_array(bands[0], elevation, "resampled elevation")
    verdict.same_array(bands[1], uncertainty, "resampled uncertainty")


def judge_unknown(verdict, path, epsg, schema):
    """A file whose values are not known: it must be whole and agree with itself."""
    judge_container(verdict, path, schema)
    dataset, _ = judge_low_resolution(verdict, path, epsg)
    west, spacing_x, _, north, _, spacing_y = dataset.GetGeoTransform()
    south = north + dataset.RasterYSize * spacing_y
    with h5py.File(path, "r") as file:
        cells = file["BAG_root/varres_metadata"][...]
        depths = file["BAG_root/varres_refinements"]["depth"][0, :]
    refined = [(int(r), int(c)) for r, c in np.argwhere(cells["index"] != NULL_INDEX)]
    supergrids = list_supergrids(path) if refined else {}
    verdict.equal(sorted(supergrids), refined, "cells listed as supergrids")
    step = max(1, len(refined) // SUPERGRIDS_OPENED)
    for r, c in (cell for cell in refined[::step] if cell in supergrids):
        cell = cells[r, c]
        nx, ny = int(cell["dimensions_x"]), int(cell["dimensions_y"])
        supergrid, bands = open_band_arrays(supergrids[r, c])
        transform = supergrid.GetGeoTransform()
        what = f"supergrid {r},{c}"
        verdict.equal((supergrid.RasterXSize, supergrid.RasterYSize), (nx, ny), f"size of {what}")
        half_x, half_y = float(cell["resolution_x"]) / 2, float(cell["resolution_y"]) / 2
        sw_x = west + c * spacing_x + float(cell["sw_corner_x"])
        sw_y = south - r * spacing_y + float(cell["sw_corner_y"])
        verdict.near((transform[0], transform[3] + ny * transform[5]),
                     (sw_x - half_x, sw_y - half_y), 1e-3, f"corner of {what}")
        start = int(cell["index"])
        verdict.same_array(bands[0], depths[start:start + nx * ny].reshape(ny, nx),
                           f"depths of {what}")
    flat = cells[cells["index"] != NULL_INDEX]
    for axis, spacing in (("x", spacing_x), ("y", -spacing_y)):
        corner = flat[f"sw_corner_{axis}"].astype("<f8")
        reach = corner + (flat[f"dimensions_{axis}"] - 1.0) * flat[f"resolution_{axis}"]
        # Single precision, of numbers about as large as a cell.
        verdict.check(np.all((corner > 0) & (reach <= spacing * (1 + 1e-6))),
                      f"a refinement reaches out of its cell along {axis}")


def report(verdict):
    for fault in verdict.faults:
        print(f"{verdict.path}: {fault}", file=sys.stderr)
    if not verdict.faults:
        print(f"{verdict.path}: {verdict.checks} checks, all right")
    return not verdict.faults


def judge_samples(program, schema):
    right = True
    with tempfile.TemporaryDirectory(prefix="judge_bag.") as folder:
        subprocess.run([program, folder], check=True)
        names = sorted(name for name in os.listdir(folder) if name.endswith(".bag"))
        for name in names:
            path = os.path.join(folder, name)
            with open(path + ".json", encoding="ascii") as description:
                expected = json.load(description)
            verdict = Verdict(path)
            judge_known(verdict, path, expected, schema)
            right = report(verdict) and right
    return right and names


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*")
    parser.add_argument("--samples", metavar="PROGRAM")
    parser.add_argument("--epsg", type=int)
    parser.add_argument("--schema", metavar="FOLDER")
    arguments = parser.parse_args()
    if not arguments.files and not arguments.samples:
        parser.error("nothing to judge")
    schema = arguments.schema
    if schema and not os.path.isdir(schema):
        print(f"metadata not validated: no schemas at {schema}")
        schema = None
    right = True
    if arguments.samples:
        right = judge_samples(arguments.samples, schema)
    for path in arguments.files:
        verdict = Verdict(path)
        judge_unknown(verdict, path, arguments.epsg, schema)
        right = report(verdict) and right
    return 0 if right else 1


if __name__ == "__main__":
    sys.exit(main())
