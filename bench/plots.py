#!/usr/bin/env python3
# plots.py - draws what the benches wrote as JSON: plots.py FOLDER
import json
import os
import sys

import matplotlib
matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402

OURS, OTHER, LIMIT = "#1b6ca8", "#b0b7bd", "#c0392b"


def load(folder, name):
    with open(os.path.join(folder, name + ".json")) as file:
        return json.load(file)


def save(figure, folder, name):
    path = os.path.join(folder, name + ".svg")
    figure.savefig(path, bbox_inches="tight", metadata={"Date": None})
    pyplot.close(figure)
    print("plot: " + os.path.relpath(path))


def plot_own_cost(folder, library):
    rows = library["own_cost"][::-1]
    figure, axes = pyplot.subplots(figsize=(7, 6.5))
    axes.barh([row["export"] for row in rows], [row["own_us_per_line"] for row in rows], color=OURS)
    axes.axvline(1, color=LIMIT, linestyle="--", label="goal")
    axes.set_xlabel("own microseconds a log line (a step write counts as two), or a call without any")
    axes.set_title("What the library costs by itself")
    axes.legend(loc="lower right")
    save(figure, folder, "own_cost")


def plot_growth(folder, library):
    rows = library["growth"]
    packages = [row["packages"] for row in rows]
    figure, axes = pyplot.subplots(figsize=(7, 4.5))
    axes.plot(packages, [row["writer_us_per_package"] for row in rows], "o-", color=OTHER,
              label="the platform's profile writer, for the last packages")
    axes.plot(packages, [row["own_us_per_package"] for row in rows], "o-", color=OURS,
              label="the library")
    for row in rows:
        axes.annotate("%d KB" % max(1, row["bytes"] // 1000),
                      (row["packages"], row["writer_us_per_package"]), xytext=(0, 7),
                      textcoords="offset points", ha="center", fontsize=8)
    axes.set(xscale="log", yscale="log", xlabel="packages in the image",
             ylabel="microseconds a package", title="GetDrivers, by the size of the ResultFile")
    axes.margins(y=0.15)
    axes.legend()
    save(figure, folder, "growth")


def plot_platform(folder, platform):
    tables = platform["tables"]
    figure, all_axes = pyplot.subplots(1, len(tables), figsize=(5.5 * len(tables), 5),
                                       squeeze=False, sharey=True)
    for table, axes in zip(tables, all_axes[0]):
        rows = table["rows"][::-1]
        names = ["%s\n%s" % (row["step"], row["by_hand"]) for row in rows]
        places = range(len(rows))
        for offset, key, color, label in ((0.2, "seconds", OURS, "Kestro"),
                                          (-0.2, "by_hand_seconds", OTHER, "wimlib-imagex by hand")):
            values = [row[key] for row in rows]
            medians = [value["median"] for value in values]
            errors = [[value["median"] - value["low"] for value in values],
                      [value["high"] - value["median"] for value in values]]
            axes.barh([place + offset for place in places], medians, 0.38, xerr=errors, color=color,
                      ecolor="#444444", capsize=2, label=label)
        for place, row in zip(places, rows):
            axes.annotate("%.2f" % row["ratio"]["median"], (1, place), xycoords=("axes fraction", "data"),
                          xytext=(4, 0), textcoords="offset points", va="center", fontsize=8)
        axes.set_yticks(places, names, fontsize=8)
        axes.set(xscale="log", xlabel="seconds; at the right the median ratio", title=table["title"])
    all_axes[0][0].legend(loc="lower right", fontsize=8)
    save(figure, folder, "platform")


def main():
    folder = sys.argv[1]
    library = load(folder, "library")
    plot_own_cost(folder, library)
    plot_growth(folder, library)
    plot_platform(folder, load(folder, "platform"))


if __name__ == "__main__":
    main()
