"""What `import` makes of a survey is compared, cell by cell, with the statistics worked out here in another way: all
soundings of a cell at once, by their definitions, instead of one sounding after another.

check_import.py COMMAND [COUNT]
"""

import json
import math
import os
import subprocess
import sys
import tempfile

try:
    import numpy
except ImportError:  # the same figures, in more time
    numpy = None

CELL_SIZE = 5.0
# Count, lowest and highest have to be equal.
MEAN_TOLERANCE = 1e-9  # of the mean's magnitude
DEVIATION_TOLERANCE = 1e-6  # metres


def run(*words):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True).stdout


def statistics_of(values):
    """Count, mean, sample deviation, lowest, highest; exact sums, so that nothing is lost on the way."""
    count = len(values)
    mean = math.fsum(values) / count
    deviation = math.sqrt(math.fsum((v - mean) ** 2 for v in values) / (count - 1)) if count > 1 else math.nan
    return count, mean, deviation, min(values), max(values)


def soundings_by_cell(path):
    if numpy is None:
        cells = {}
        with open(path, encoding="ascii") as lines:
            for line in lines:
                x, y, z = map(float, line.split(","))
                cells.setdefault((math.floor(y / CELL_SIZE), math.floor(x / CELL_SIZE)), []).append(z)
        return cells
    x, y, z = numpy.loadtxt(path, delimiter=",", unpack=True)
    rows = numpy.floor(y / CELL_SIZE).astype(int)
    cols = numpy.floor(x / CELL_SIZE).astype(int)
    order = numpy.lexsort((cols, rows))
    rows, cols, z = rows[order], cols[order], z[order]
    starts = numpy.flatnonzero(numpy.r_[True, (numpy.diff(rows) != 0) | (numpy.diff(cols) != 0)])
    ends = numpy.r_[starts[1:], len(z)]
    return {(int(rows[a]), int(cols[a])): z[a:b].tolist() for a, b in zip(starts, ends)}


def cells_of(command, model):
    cells = {}
    for line in run(command, "cells", model, "--blocks", "VAL,NUM,SDV,MIN,MAX").splitlines():
        x, y, mean, count, deviation, lowest, highest = map(float, line.split(" "))
        place = (math.floor(y / CELL_SIZE), math.floor(x / CELL_SIZE))
        assert place not in cells, f"cell {place} is written twice"
        cells[place] = (count, mean, deviation, lowest, highest)
    return cells


def compare(found, soundings):
    """The largest differences: of the mean relative to it, of the deviation in metres."""
    assert found.keys() == soundings.keys(), f"{len(found)} cells instead of {len(soundings)}"
    worst_mean = worst_deviation = 0.0
    for place, values in soundings.items():
        count, mean, deviation, lowest, highest = statistics_of(values)
        got = found[place]
        assert (got[0], got[3], got[4]) == (count, lowest, highest), (place, got, (count, lowest, highest))
        worst_mean = max(worst_mean, abs(got[1] - mean) / abs(mean))
        if math.isnan(deviation):
            assert math.isnan(got[2]), (place, got)
        else:
            worst_deviation = max(worst_deviation, abs(got[2] - deviation))
    return worst_mean, worst_deviation


def main(command, count):
    with tempfile.TemporaryDirectory(prefix="vakdtm-test-") as folder:
        survey = os.path.join(folder, "survey.xyz")
        model = os.path.join(folder, "survey.dtm")
        run(command, "simulate", "-o", survey, "--count", str(count), "--seed", "7")
        summary = json.loads(run(command, "import", model, survey, "--cell-size", str(CELL_SIZE), "--json"))
        assert summary["taken"] == summary["lines"] == count, summary
        soundings = soundings_by_cell(survey)
        heights = [z for values in soundings.values() for z in values]
        assert summary["z_range"] == [min(heights), max(heights)], summary
        assert summary["cells"] == len(soundings), summary
        mean, deviation = compare(cells_of(command, model), soundings)
    fullest = max(map(len, soundings.values()))
    print(f"{count} soundings in {len(soundings)} cells, up to {fullest} in one")
    print("largest difference of count, lowest and highest: 0")
    print(f"largest difference of the mean, relative: {mean:.3g}")
    print(f"largest difference of the deviation, metres: {deviation:.3g}")
    assert fullest > 20, "too few soundings to say anything"
    assert mean <= MEAN_TOLERANCE and deviation <= DEVIATION_TOLERANCE


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 200000)
