#!/usr/bin/env python3
"""Contours of a stored surface: this project's command beside gdal_contour on the same grid.

    contours.py --vakdtm COMMAND [--side N] [--interval X] [--runs N] [--xyz FILE]

Makes two surfaces of N x N cells of 1 m (2000), each as a model that records VAL alone and, exported from it and translated, as a
GeoTIFF of float64: "smooth", a bed of waves without a gap, and "rough", the same with noise of 5 cm, a spike in a thousand cells and
strips without data. With --xyz a survey of one's own takes the place of the rough one.

Both programs trace all multiples of the interval (0.25) into the same formats, as whole processes, in turn (A B C A B C ...), with a
warm page cache; the first table gives medians of wall time and of processor time, and peak memory. "traced alone" is the command
without a file.

What stands below the tables compares lengths, level by level, in all squares of four cells that have values. Elsewhere the programs
differ by design: gdal_contour goes on half a cell beyond the last centre and into squares with three values, the command ends where
four values are no longer there. Squares are told by the middle of each stretch of a line, since none reaches from one into another.
In a saddle, where opposite corners lie on one side of the level, four crossings can be joined in two ways: the command asks on which
side the mean of the corners is, gdal_contour has a rule of its own, and lengths differ; so saddles are added up by themselves. Everywhere else both draw by the same rule, but for values exactly on a level, which one raises by 1e-7 and the other by
an amount of its own. Ends with an error where a level's length outside saddles differs by more than 0.1 %, and by more than a
cell's side.

Debian packages: gdal-bin python3-gdal python3-numpy time.
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from stats import run_once  # noqa: E402  the same way of measuring

MAKE = """
import sys
import numpy
side, folder = int(sys.argv[1]), sys.argv[2]
random = numpy.random.default_rng(20262)
y, x = numpy.mgrid[0:side, 0:side]
z = -14 + 3 * numpy.sin(x / 90) * numpy.cos(y / 130) + 0.9 * numpy.sin(x / 32 + numpy.sin(y / 160)) - 0.0011 * x
def save(name, z, keep):
    rows = numpy.c_[x.ravel() + 0.5, y.ravel() + 0.5, z.ravel()][keep.ravel()]
    numpy.savetxt(folder + "/" + name, rows, fmt="%.1f,%.1f,%.3f")
save("smooth.xyz", z, numpy.ones_like(z, bool))
z = z + 0.05 * random.standard_normal(z.shape)
spikes = random.random(z.shape) < 0.001
z[spikes] += random.uniform(-6, 6, spikes.sum())
gaps = (x % 400 > 380) | (random.random(z.shape) < 0.02)
save("rough.xyz", z, ~gaps)
"""

# Of two files of lines and the grid: level by level the lengths within squares of four values, outside saddles and in them.
COMPARE = """
import collections
import json
import sys
import numpy
from osgeo import gdal, ogr
gdal.UseExceptions()
grid = gdal.Open(sys.argv[1])
x0, step, _, y0, _, _ = grid.GetGeoTransform()
band = grid.GetRasterBand(1)
z = band.ReadAsArray()
full = z != band.GetNoDataValue()
square = full[:-1, :-1] & full[1:, :-1] & full[:-1, 1:] & full[1:, 1:]
def lengths(path):
    plain, saddles, all_of_it = collections.Counter(), collections.Counter(), 0.0
    data = ogr.Open(path)
    for one in data.GetLayer(0):
        points = numpy.array(one.GetGeometryRef().GetPoints())[:, :2]
        pieces = numpy.hypot(*(points[1:] - points[:-1]).T)
        middle = (points[1:] + points[:-1]) / 2
        column = numpy.floor((middle[:, 0] - x0) / step - 0.5).astype(int)
        row = numpy.floor((y0 - middle[:, 1]) / step - 0.5).astype(int)
        within = (column >= 0) & (row >= 0) & (column < square.shape[1]) & (row < square.shape[0])
        within[within] = square[row[within], column[within]]
        level = round(one.GetField('level'), 9)
        row, column, inner = row[within], column[within], pieces[within]
        a, b, c, d = (z[row + i, column + k] >= level for i, k in ((0, 0), (0, 1), (1, 1), (1, 0)))
        saddle = (a == c) & (b == d) & (a != b)
        plain[level] += inner[~saddle].sum()
        saddles[level] += inner[saddle].sum()
        all_of_it += pieces.sum()
    return plain, saddles, all_of_it
ours, our_saddles, our_sum = lengths(sys.argv[2])
theirs, their_saddles, their_sum = lengths(sys.argv[3])
levels = sorted(set(ours) | set(theirs))
def share(level): return abs(ours[level] - theirs[level]) / max(ours[level], theirs[level], 1e-9)
long = [level for level in levels if max(ours[level], theirs[level]) > 1000 * step] or levels
worst = max(long, key=share)
print(json.dumps({'levels': len(levels), 'ours': sum(ours.values()), 'theirs': sum(theirs.values()), 'our_sum': our_sum,
                  'their_sum': their_sum, 'our_saddles': sum(our_saddles.values()), 'their_saddles': sum(their_saddles.values()),
                  'worst': worst, 'worst_ours': ours[worst], 'worst_theirs': theirs[worst], 'share': share(worst),
                  'failed': [level for level in levels if share(level) > 1e-3 and abs(ours[level] - theirs[level]) > step]}))
"""


def make_grid(command, name, folder):
    """A model and its GeoTIFF from the text NAME.xyz."""
    subprocess.run([command, "import", f"{name}.dtm", f"{name}.xyz", "--cell-size", "1", "--blocks", "VAL", "--quiet", "--json"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    subprocess.run([command, "export", "esri", f"{name}.dtm", "-o", f"{name}.asc", "--format", "%.17g", "--corner"],
                   cwd=folder, check=True)
    subprocess.run(["gdal_translate", "-q", "-ot", "Float64", "-a_nodata", "-9999", f"{name}.asc", f"{name}.tif"],
                   cwd=folder, check=True)
    os.remove(os.path.join(folder, f"{name}.asc"))


def remove(folder, stem):
    for entry in os.listdir(folder):
        if entry.startswith(stem + "."):
            os.remove(os.path.join(folder, entry))


def measure(command, name, interval, runs, folder):
    ours = [command, "contour", f"{name}.dtm", "--interval", interval]
    theirs = ["gdal_contour", "-q", "-a", "level", "-i", interval, f"{name}.tif"]
    everyone = {"vakdtm, traced alone": [*ours, "--json"]}
    for ending, title in (("geojson", "GeoJSON"), ("shp", "Shapefile"), ("gpkg", "GeoPackage")):
        everyone[f"vakdtm, {title}"] = [*ours, "-o", f"ours.{ending}"]
        everyone[f"gdal_contour, {title}"] = [*theirs, f"theirs.{ending}"]
    figures = {title: [] for title in everyone}
    for _ in range(runs):
        for title, words in everyone.items():
            remove(folder, "theirs" if title.startswith("gdal") else "ours")
            *figure, _ = run_once(words, folder)
            figures[title].append(figure)
    print(f"\n| {name}, every {interval} m | wall s | processor s | peak MB |\n|---|---|---|---|")
    for title, rows in figures.items():
        wall, busy, peak = (statistics.median(column) for column in zip(*rows))
        print(f"| {title} | {wall:.2f} | {busy:.2f} | {peak:.0f} |")


def compare(command, name, interval, folder):
    """@return the levels that differ too much."""
    for stem in ("ours", "theirs"):
        remove(folder, stem)
    subprocess.run([command, "contour", f"{name}.dtm", "--interval", interval, "-o", "ours.gpkg"], cwd=folder, check=True)
    # A Shapefile, whose levels are rounded alike, is the quicker one of theirs.
    subprocess.run(["gdal_contour", "-q", "-a", "level", "-i", interval, f"{name}.tif", "theirs.shp"], cwd=folder, check=True)
    told = subprocess.run(["/usr/bin/python3", "-c", COMPARE, f"{name}.tif", "ours.gpkg", "theirs.shp"],
                          cwd=folder, check=True, capture_output=True, text=True).stdout
    found = json.loads(told)
    print(f"\n{name}, {found['levels']} levels, vakdtm and gdal_contour:")
    print(f"  outside saddles {found['ours']:.3f} m and {found['theirs']:.3f} m; in saddles {found['our_saddles']:.3f} m and "
          f"{found['their_saddles']:.3f} m; with gaps and edges {found['our_sum']:.0f} m and {found['their_sum']:.0f} m")
    print(f"  greatest difference of a long level outside saddles, at {found['worst']}: {found['worst_ours']:.4f} m and "
          f"{found['worst_theirs']:.4f} m, {found['share']:.1e} of it")
    return found["failed"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vakdtm", required=True)
    parser.add_argument("--side", type=int, default=2000)
    parser.add_argument("--interval", default="0.25")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--xyz")
    options = parser.parse_args()
    command = os.path.abspath(options.vakdtm)
    folder = tempfile.mkdtemp(prefix="vakdtm-peers-")
    try:
        subprocess.run(["/usr/bin/python3", "-c", MAKE, str(options.side), folder], check=True)
        if options.xyz:
            shutil.copy(options.xyz, os.path.join(folder, "rough.xyz"))
        failed = {}
        for name in ("smooth", "rough"):
            make_grid(command, name, folder)
            measure(command, name, options.interval, options.runs, folder)
            failed[name] = compare(command, name, options.interval, folder)
        if any(failed.values()):
            sys.exit(f"lengths differ at the levels {failed}")
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
