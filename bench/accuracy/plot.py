#!/usr/bin/python3
"""Draws the accuracy table: errors of each method over those of the oracle, scenario by scenario.

    plot.py TABLE.csv OUT.png
"""

import csv
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

METHODS = {"quarro": "o", "median": "s", "mean": "^"}
MEASURES = {"rmse_m": "root mean square error", "p95_m": "95 % of errors",
            "p999_m": "99.9 % of errors"}


def main():
    table = {}
    for row in csv.DictReader(open(sys.argv[1])):
        table.setdefault((row["level"], row["scenario"]), {})[row["method"]] = row
    figure, axes = plt.subplots(2, 4, figsize=(20, 11), sharex="row", constrained_layout=True)
    for line, level in zip(axes, ("low", "full")):
        names = [scenario for (found, scenario) in table if found == level]
        for axis, (measure, title) in zip(line, MEASURES.items()):
            for method, mark in METHODS.items():
                ratios = [float(table[level, name][method][measure]) /
                          max(float(table[level, name]["oracle"][measure]), 1e-9)
                          for name in names]
                axis.plot(names, ratios, mark, label=method)
            axis.axhline(1.1, linewidth=0.7, color="grey")
            axis.set_yscale("log")
            axis.set_title(f"{level} resolution: {title}, over the oracle's")
            axis.legend()
        covered = [float(table[level, name]["quarro"]["covered"]) for name in names]
        line[3].bar(names, covered)
        line[3].set_ylim(0.7, 1.0)
        line[3].axhspan(0.93, 0.97, alpha=0.2, color="green")
        line[3].set_title(f"{level} resolution: errors within 1.96 sigma")
        for axis in line:
            axis.tick_params(axis="x", rotation=75)
    figure.savefig(sys.argv[2], dpi=70)


if __name__ == "__main__":
    main()
