#!/usr/bin/env python3
"""Statistics of a stored surface: this project's command beside what users would take instead.

    stats.py --vakdtm COMMAND [--side N] [--runs N]

Makes a surface of N x N cells (2000), as a model that records VAL alone and as GeoTIFFs of float64 and float32, and takes mean,
deviation, lowest and highest value of it: every program as a whole process, in turn (A B C A B C ...), with a warm page cache.
The table gives medians of wall time and of processor time, and peak memory. All have to agree on the mean.

Debian packages: gmt gdal-bin python3-gdal python3-numpy time.
"""
import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))

MAKE = """
import sys
import numpy
from osgeo import gdal
side, folder = int(sys.argv[1]), sys.argv[2]
random = numpy.random.default_rng(20261)
y, x = numpy.mgrid[0:side, 0:side]
z = numpy.round(-14 + 3 * numpy.sin(x / 90) * numpy.cos(y / 130) + 0.5 * random.standard_normal((side, side)), 3)
numpy.savetxt(folder + "/a.xyz", numpy.c_[x.ravel() + 0.5, y.ravel() + 0.5, z.ravel()], fmt="%.1f,%.1f,%.3f")
for name, kind in (("a64.tif", gdal.GDT_Float64), ("a32.tif", gdal.GDT_Float32)):
    tiff = gdal.GetDriverByName("GTiff").Create(folder + "/" + name, side, side, 1, kind)
    tiff.SetGeoTransform((0, 1, 0, side, 0, -1))
    tiff.GetRasterBand(1).WriteArray(z[::-1])
"""


def run_once(command, folder):
    """Wall seconds, processor seconds, peak memory in MB, and what the command prints."""
    measured = os.path.join(folder, "time.txt")
    start = time.monotonic()
    done = subprocess.run(["/usr/bin/time", "-v", "-o", measured, *command], cwd=folder, capture_output=True, text=True)
    wall = time.monotonic() - start
    if done.returncode != 0:
        sys.exit(f"{command}\n{done.stderr}")
    with open(measured, encoding="utf-8") as report:
        text = report.read()
    busy = sum(float(found) for found in re.findall(r"(?:User|System) time \(seconds\): ([0-9.]+)", text))
    return wall, busy, int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", text).group(1)) / 1024, done.stdout


def mean_in(name, text):
    if name == "vakdtm":
        return json.loads(text)["average"]
    if name == "gdalinfo, 32 bits":
        return float(re.search(r"STATISTICS_MEAN=(\S+)", text).group(1))
    if name.startswith("GMT"):
        return float(re.search(r"mean: (\S+)", text).group(1))
    return float(text.split()[1])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vakdtm", required=True)
    parser.add_argument("--side", type=int, default=2000)
    parser.add_argument("--runs", type=int, default=5)
    options = parser.parse_args()
    command = os.path.abspath(options.vakdtm)
    folder = tempfile.mkdtemp(prefix="vakdtm-peers-")
    try:
        subprocess.run(["/usr/bin/python3", "-c", MAKE, str(options.side), folder], check=True)
        subprocess.run([command, "import", "a.dtm", "a.xyz", "--cell-size", "1", "--blocks", "VAL", "--quiet"],
                       cwd=folder, check=True)
        everyone = {
            "vakdtm": [command, "stats", "a.dtm", "--json"],
            "numpy + GDAL, 64 bits": ["/usr/bin/python3", f"{HERE}/stats_with_numpy.py", "a64.tif"],
            "numpy + GDAL, 32 bits": ["/usr/bin/python3", f"{HERE}/stats_with_numpy.py", "a32.tif"],
            "gdalinfo, 32 bits": ["gdalinfo", "-stats", "a32.tif"],
            "GMT grdinfo, 32 bits": ["gmt", "grdinfo", "-L2", "a32.tif"],
        }
        figures = {name: [] for name in everyone}
        means = {}
        for _ in range(options.runs):
            for name, words in everyone.items():
                *figure, text = run_once(words, folder)
                figures[name].append(figure)
                means[name] = mean_in(name, text)
                for kept in os.listdir(folder):  # gdalinfo would only read its own answer again
                    if kept.endswith(".aux.xml"):
                        os.remove(os.path.join(folder, kept))
        print("| program | wall s | processor s | peak MB | mean |\n|---|---|---|---|---|")
        for name, runs in figures.items():
            wall, busy, peak = (statistics.median(column) for column in zip(*runs))
            print(f"| {name} | {wall:.2f} | {busy:.2f} | {peak:.0f} | {means[name]:.9f} |")
        if max(means.values()) - min(means.values()) > 1e-6:
            sys.exit("the means differ")
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
