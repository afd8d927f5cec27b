#!/usr/bin/python3
"""Mean, sample deviation, lowest and highest value of a raster with GDAL and numpy.

    stats_with_numpy.py TIFF
"""
import sys

import numpy
from osgeo import gdal


def main():
    z = gdal.Open(sys.argv[1]).ReadAsArray().astype(numpy.float64)
    z = z[~numpy.isnan(z)]
    print(z.size, z.mean(), z.std(ddof=1), z.min(), z.max())


if __name__ == "__main__":
    main()
