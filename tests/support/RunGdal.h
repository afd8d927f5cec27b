#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/RunCommand.h"

namespace vak::test {

/// Runs a script in Debian's own Python, the one that GDAL is installed for, and waits for its end. The script has
/// `sys`, `gdal` and `ogr`, and errors of GDAL as exceptions. Without the packages the test fails with their names.
/// @param argument  its `sys.argv[1]`.
inline CommandResult RunGdal(const std::string& script, const std::string& argument) {
  const std::string python = "/usr/bin/python3";
  if (!std::filesystem::exists(python)) {
    throw std::runtime_error(
        "this test needs the packages python3, python3-gdal and python3-numpy (scripts/bootstrap "
        "--checks)");
  }
  const std::string beginning =
      "import sys\n"
      "try:\n"
      "    from osgeo import gdal, gdal_array, ogr\n"
      "except ImportError as error:\n"
      "    sys.exit('this test needs the packages python3-gdal and python3-numpy (scripts/bootstrap --checks): %s' % "
      "error)\n"
      "gdal.UseExceptions()\n";
  return RunCommand({python, "-B", "-c", beginning + script, argument}).Wait();
}

}  // namespace vak::test
