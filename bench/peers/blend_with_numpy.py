#!/usr/bin/python3
"""Blends an image of colours with a hillshade, with GDAL and numpy, into an image as `vakdtm export geotiff` writes them.

    blend_with_numpy.py COLOURS SHADE RESULT
"""
import sys

import numpy
from osgeo import gdal


def main():
    source = gdal.Open(sys.argv[1])
    colours = source.ReadAsArray()
    light = gdal.Open(sys.argv[2]).ReadAsArray().astype(numpy.float32) / 255
    result = gdal.GetDriverByName("GTiff").Create(
        sys.argv[3], source.RasterXSize, source.RasterYSize, 4, gdal.GDT_Byte,
        ["PHOTOMETRIC=RGB", "ALPHA=YES", "COMPRESS=LZW", "BLOCKYSIZE=1", "INTERLEAVE=PIXEL"])
    result.SetGeoTransform(source.GetGeoTransform())
    colours[:3] = colours[:3] * (0.35 + 0.65 * light)
    result.WriteArray(colours)


if __name__ == "__main__":
    main()
