#include "GeoJsonOutput.h"

#include <cstddef>

#include "vakdtm/services/text/FormatNumber.h"

namespace vak {
namespace {

/// "EPSG:25831" as a name that every reader knows: the form with two colons leaves the edition open.
std::string CrsMember(const std::string& crs) {
  const std::size_t colon = crs.find(':');
  return R"("crs":{"type":"name","properties":{"name":"urn:ogc:def:crs:)" + crs.substr(0, colon) +
         "::" + crs.substr(colon + 1) + "\"}},\n";
}

/// Appends an attribute. Whole ones get a decimal: a reader that judges by the first numbers it sees would take the
/// attribute for one of whole numbers otherwise.
void AppendReal(std::string& text, double value) {
  const std::size_t start = text.size();
  AppendNumber(text, value);
  if (text.find_first_of(".e", start) == std::string::npos) text += ".0";
}

}  // namespace

bool GeoJsonOutput::Open(const LineFileSettings& settings) {
  if (!file_.Open(settings.path)) return false;
  text_ = "{\n\"type\":\"FeatureCollection\",\n\"name\":\"" + settings.name + "\",\n";
  if (!settings.crs.empty()) text_ += CrsMember(settings.crs);
  text_ += "\"features\":[";
  return file_.Write(text_);
}

bool GeoJsonOutput::Write(const LineShape& line) {
  text_ = first_ ? "\n" : ",\n";
  first_ = false;
  text_ += R"({"type":"Feature","properties":{"level":)";
  AppendReal(text_, line.level);
  text_ += line.closed ? R"(,"closed":true,"length":)" : R"(,"closed":false,"length":)";
  AppendReal(text_, line.length);
  text_ += R"(},"geometry":{"type":"LineString","coordinates":)";
  for (std::size_t i = 0; i < line.x.size(); ++i) {
    text_ += i == 0 ? "[[" : ",[";
    AppendNumber(text_, line.x[i]);
    text_ += ',';
    AppendNumber(text_, line.y[i]);
    if (!line.z.empty()) {
      text_ += ',';
      AppendNumber(text_, line.z[i]);
    }
    text_ += ']';
  }
  text_ += "]}}";
  return file_.Write(text_);
}

bool GeoJsonOutput::Complete() { return file_.Write("\n]\n}\n"); }

std::string GeoJsonOutput::Remedy() const {
  return file_.LacksRoom() ? "make room, or name another file with -o" : "name another file with -o";
}

}  // namespace vak
