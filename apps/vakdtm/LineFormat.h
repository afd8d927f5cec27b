#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vak {

/// A kind of file that polylines are written to, chosen by the ending of its name.
struct LineFormat {
  std::string_view ending;  ///< ".gpkg"
  std::string_view driver;  ///< GDAL's name for it; empty where the command writes it itself
  bool keepsCrs;            ///< whether it has a place for a coordinate system
  /// Endings of the files that belong to it and have its name otherwise. Those that an earlier program made go with the
  /// file that is replaced: they would tell of lines that are no longer there.
  std::vector<std::string_view> companions;
  /// The same for what is appended to its whole name.
  std::vector<std::string_view> appendices;
};

/// @return the format for a file of this name, large letters or small; null when there is none. "-" is GeoJSON.
const LineFormat* FindLineFormat(std::string_view path);

/// @return ".geojson, .json, .gpkg ...", for messages.
std::string LineFormatEndings();

}  // namespace vak
