#!/usr/bin/env python3
"""Images of a stored surface: this project's command beside what users would take instead.

    geotiff.py --vakdtm COMMAND [--side N] [--runs N]

Makes a surface of N x N cells (2000), as a model that records VAL alone and as an uncompressed GeoTIFF of float32, and makes of it
a float32 raster and a hill-shaded image of red, green, blue and alpha: every program as a whole process, in turn (A B C A B C ...),
with a warm page cache. Images of colours are compressed by LZW, one row a strip, all four samples together; the GDAL way there is
gdaldem color-relief, gdaldem hillshade and a numpy script that blends the two, once with these two steps' files as gdaldem writes
them by itself, once with all three in that compression. The table gives medians of wall time and of processor time, peak memory of
the largest process, and the size of the image. The rasters have to be the same to the last bit, and both ways of colours have to
leave the same pixels transparent.

Debian packages: gdal-bin python3-gdal python3-numpy time.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

from stats import HERE, MAKE, run_once

RAMP = "-30 0 0 120 255\n-22 0 90 220 255\n-16 40 200 200 255\n-12 240 230 90 255\n-6 200 40 20 255\nnv 0 0 0 0\n"
# The same stops as a palette.
PALETTE = """-30 0/0/120 -22 0/90/220
-22 0/90/220 -16 40/200/200
-16 40/200/200 -12 240/230/90
-12 240/230/90 -6 200/40/20
"""
SAME = """
import sys
import numpy
from osgeo import gdal
kind, ours, theirs = sys.argv[1:]
a, b = gdal.Open(ours), gdal.Open(theirs)
x0, dx, _, y0, _, dy = a.GetGeoTransform()
u0, du, _, v0, _, dv = b.GetGeoTransform()
a = a.ReadAsArray(int((u0 - x0) / dx), int((v0 - y0) / dy), b.RasterXSize, b.RasterYSize)
b = b.ReadAsArray()
sys.exit(0 if (numpy.array_equal(a, b) if kind == "raster" else numpy.array_equal(a[3], b[3])) else "the images differ")
"""


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vakdtm", required=True)
    parser.add_argument("--side", type=int, default=2000)
    parser.add_argument("--runs", type=int, default=5)
    options = parser.parse_args()
    command = os.path.abspath(options.vakdtm)
    folder = tempfile.mkdtemp(prefix="vakdtm-peers-")
    lzw = "-co COMPRESS=LZW -co BLOCKYSIZE=1"
    blend = f"/usr/bin/python3 {HERE}/blend_with_numpy.py"
    try:
        subprocess.run(["/usr/bin/python3", "-c", MAKE, str(options.side), folder], check=True)
        subprocess.run([command, "import", "a.dtm", "a.xyz", "--cell-size", "1", "--blocks", "VAL", "--quiet"],
                       cwd=folder, check=True)
        for name, text in (("ramp.txt", RAMP), ("ramp.cpt", PALETTE)):
            with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                file.write(text)
        everyone = {
            "raster: vakdtm": ([command, "export", "geotiff", "a.dtm", "-o", "o1.tif", "--raster", "--quiet"], "o1.tif"),
            "raster: gdal_translate": (["gdal_translate", "-q", "-ot", "Float32", "a32.tif", "o2.tif"], "o2.tif"),
            "colours: vakdtm": ([command, "export", "geotiff", "a.dtm", "-o", "o3.tif", "--colors", "ramp.cpt", "--sun",
                                 "315,45,5", "--quiet"], "o3.tif"),
            "colours: GDAL + numpy, the image LZW": (
                ["sh", "-c", "gdaldem color-relief -q -alpha a32.tif ramp.txt c.tif && "
                 "gdaldem hillshade -q -compute_edges a32.tif s.tif && " + blend + " c.tif s.tif o4.tif"], "o4.tif"),
            "colours: GDAL + numpy, all LZW": (
                ["sh", "-c", f"gdaldem color-relief -q -alpha {lzw} a32.tif ramp.txt c.tif && "
                 f"gdaldem hillshade -q -compute_edges {lzw} a32.tif s.tif && " + blend + " c.tif s.tif o5.tif"], "o5.tif"),
        }
        figures = {name: [] for name in everyone}
        for _ in range(options.runs):
            for name, (words, _) in everyone.items():
                *figure, _ = run_once(words, folder)
                figures[name].append(figure)
        for kind, ours, theirs in (("raster", "o1.tif", "o2.tif"), ("colours", "o3.tif", "o4.tif"),
                                   ("colours", "o3.tif", "o5.tif")):
            subprocess.run(["/usr/bin/python3", "-c", SAME, kind, ours, theirs], cwd=folder, check=True)
        print("| program | wall s | processor s | peak MB | image MB |\n|---|---|---|---|---|")
        for name, runs in figures.items():
            wall, busy, peak = (statistics.median(column) for column in zip(*runs))
            size = os.path.getsize(os.path.join(folder, everyone[name][1])) / 1e6
            print(f"| {name} | {wall:.3f} | {busy:.3f} | {peak:.0f} | {size:.1f} |")
    except subprocess.CalledProcessError as error:
        sys.exit(str(error))
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
