#include "LineFormat.h"

#include <algorithm>

namespace vak {
namespace {

const std::vector<LineFormat>& Formats() {
  static const std::vector<LineFormat> formats = {
      {".geojson", "", true, {}, {}},
      {".json", "", true, {}, {}},
      {".gpkg", "GPKG", true, {}, {"-journal", "-wal", "-shm"}},
      {".shp",
       "ESRI Shapefile",
       true,
       {".shx", ".dbf", ".prj", ".cpg", ".qpj", ".qix", ".sbn", ".sbx", ".idm", ".ind"},
       {".xml"}},
      {".dxf", "DXF", false, {}, {}},
      {".fgb", "FlatGeobuf", true, {}, {}},
  };
  return formats;
}

char Small(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

bool EndsWith(std::string_view path, std::string_view ending) {
  if (path.size() <= ending.size() || path[path.size() - ending.size() - 1] == '/') return false;
  return std::equal(ending.begin(), ending.end(), path.end() - static_cast<std::ptrdiff_t>(ending.size()),
                    [](char a, char b) { return a == Small(b); });
}

}  // namespace

const LineFormat* FindLineFormat(std::string_view path) {
  const auto found = std::find_if(Formats().begin(), Formats().end(), [path](const LineFormat& format) {
    return path == "-" || EndsWith(path, format.ending);
  });
  return found == Formats().end() ? nullptr : &*found;
}

std::string LineFormatEndings() {
  std::string all;
  for (const LineFormat& format : Formats()) {
    const bool last = &format == &Formats().back();
    all.append(all.empty() ? "" : last ? " or " : ", ").append(format.ending);
  }
  return all;
}

}  // namespace vak
