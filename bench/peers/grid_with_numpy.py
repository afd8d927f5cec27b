#!/usr/bin/python3
"""Grids a text of x,y,z with numpy into a five-band GeoTIFF: what a data scientist would write in an afternoon.

    grid_with_numpy.py TEXT TIFF LEFT RIGHT BOTTOM TOP

Bands: mean, count, sample deviation, lowest, highest. Cells of 1 m, a cell's lower and left edges belong to it.
"""
import sys

import numpy
from osgeo import gdal


def main():
    text, tiff = sys.argv[1:3]
    left, right, bottom, top = (int(word) for word in sys.argv[3:7])
    width, height = right - left, top - bottom
    x, y, z = numpy.loadtxt(text, delimiter=",", unpack=True)
    col = numpy.floor(x).astype(numpy.int64) - left
    row = numpy.floor(y).astype(numpy.int64) - bottom
    cell = row * width + col
    cells = width * height

    count = numpy.bincount(cell, minlength=cells)
    empty = count == 0
    weight = numpy.where(empty, 1, count)
    mean = numpy.bincount(cell, weights=z, minlength=cells) / weight
    spread = numpy.bincount(cell, weights=numpy.square(z - mean[cell]), minlength=cells)
    deviation = numpy.sqrt(spread / numpy.maximum(count - 1, 1))
    deviation[count < 2] = numpy.nan
    lowest = numpy.full(cells, numpy.inf)
    highest = numpy.full(cells, -numpy.inf)
    numpy.minimum.at(lowest, cell, z)
    numpy.maximum.at(highest, cell, z)

    out = gdal.GetDriverByName("GTiff").Create(tiff, width, height, 5, gdal.GDT_Float32)
    out.SetGeoTransform((left, 1, 0, top, 0, -1))
    for number, values in enumerate((mean, count, deviation, lowest, highest), start=1):
        values = values.astype(numpy.float32)
        values[empty] = numpy.nan
        band = out.GetRasterBand(number)
        band.SetNoDataValue(numpy.nan)
        band.WriteArray(values.reshape(height, width)[::-1])
    out.FlushCache()


if __name__ == "__main__":
    main()
