#!/usr/bin/env python3
"""From a text of soundings to a stored grid: this project's command beside what users would take instead.

    run.py --vakdtm COMMAND --text FILE [--runs N] [--sparse] [--gdal-grid]

FILE holds lines x,y,z in metres. All get the same bounds, found by one pass over the file. Every program is run as a whole
process, in turn (A B C A B C ...), with a warm page cache; the table gives medians of wall time and peak memory. Each is
measured twice: as it is, with `sync` of its result behind it, and with flushing to the disk switched off (eatmydata).

Debian packages: gmt gdal-bin python3-gdal python3-numpy time eatmydata.
"""
import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))


def bounds_of(text):
    left = bottom = float("inf")
    right = top = float("-inf")
    with open(text, "rb") as lines:
        for line in lines:
            x, y, _ = line.split(b",")
            x, y = float(x), float(y)
            left, right = min(left, x), max(right, x)
            bottom, top = min(bottom, y), max(top, y)
    return int(left // 1), int(right // 1) + 1, int(bottom // 1), int(top // 1) + 1


def competitors(options, left, right, bottom, top):
    text = os.path.abspath(options.text)
    region = f"-R{left}/{right}/{bottom}/{top} -I1 -r"
    list_of = {
        "vakdtm": (f"rm -f v.dtm; {os.path.abspath(options.vakdtm)} import v.dtm {text} --cell-size 1 "
                   "--blocks VAL,NUM,SDV,MIN,MAX --quiet", "v.dtm"),
    }
    if not options.sparse:
        list_of["numpy + GDAL"] = (
            f"/usr/bin/python3 {HERE}/grid_with_numpy.py {text} n.tif {left} {right} {bottom} {top}", "n.tif")
    list_of["GMT blockmean, no count"] = (f"gmt blockmean {text} {region} -E -Az,s,l,h -Gg_%s.nc", "g_z.nc")
    if options.gdal_grid:
        box = f"-txe {left} {right} -tye {bottom} {top} -outsize {right - left} {top - bottom}"
        one = "gdal_grid -q -l p -a {0}:radius=0.5:nodata=nan " + box + " p.vrt {0}.tif"
        vrt = (f"<OGRVRTDataSource><OGRVRTLayer name=\"p\"><SrcDataSource>CSV:p.csv</SrcDataSource><SrcLayer>p</SrcLayer>"
               "<GeometryType>wkbPoint25D</GeometryType><GeometryField encoding=\"PointFromColumns\" x=\"field_1\" "
               "y=\"field_2\" z=\"field_3\"/></OGRVRTLayer></OGRVRTDataSource>")
        list_of["gdal_grid mean only"] = (f"ln -sf {text} p.csv; echo '{vrt}' > p.vrt; " + one.format("average"),
                                          "average.tif")
    return list_of


def run_once(command, folder, no_flush):
    """Wall seconds and peak memory in MB of one run, the largest of its processes."""
    measured = os.path.join(folder, "time.txt")
    words = ["/usr/bin/time", "-v", "-o", measured] + (["eatmydata"] if no_flush else [])
    start = time.monotonic()
    done = subprocess.run(words + ["bash", "-c", command], cwd=folder, capture_output=True, text=True)
    wall = time.monotonic() - start
    if done.returncode != 0:
        sys.exit(f"{command}\n{done.stderr}")
    with open(measured, encoding="utf-8") as report:
        peak = int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", report.read()).group(1))
    return wall, peak / 1024


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vakdtm", required=True)
    parser.add_argument("--text", required=True)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--sparse", action="store_true", help="leave out what takes memory by the bounding box alone")
    parser.add_argument("--gdal-grid", action="store_true", help="run gdal_grid too, which takes minutes")
    options = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="vakdtm-peers-")
    try:
        everyone = competitors(options, *bounds_of(options.text))
        print("| program | flushed | wall s | peak MB | result MB |\n|---|---|---|---|---|")
        for no_flush in (True, False):
            figures = {name: [] for name in everyone}
            for _ in range(options.runs):
                for name, (command, result) in everyone.items():
                    whole = command if no_flush else command + f" && sync {result}"
                    figures[name].append(run_once(whole, folder, no_flush))
            for name, runs in figures.items():
                size = os.path.getsize(os.path.join(folder, everyone[name][1])) / 1e6
                wall, peak = (statistics.median(column) for column in zip(*runs))
                print(f"| {name} | {'no' if no_flush else 'yes'} | {wall:.2f} | {peak:.0f} | {size:.0f} |", flush=True)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
