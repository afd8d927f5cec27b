#include "ColorOptions.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

/// Reads "a,b,c" into the numbers, in order; what isn't there stays as it is. @return false for anything else.
bool ParseNumbers(std::string_view text, std::span<double* const> numbers, std::size_t atLeast) {
  std::size_t from = 0;
  std::size_t count = 0;
  for (; from <= text.size(); ++count) {
    if (count == numbers.size()) return false;
    const std::size_t comma = std::min(text.find(',', from), text.size());
    double number = 0;
    const char* const end = text.data() + comma;
    const auto [stop, code] = std::from_chars(text.data() + from, end, number);
    if (code != std::errc() || stop != end || !std::isfinite(number)) return false;
    *numbers[count] = number;
    from = comma + 1;
  }
  return count >= atLeast;
}

}  // namespace

std::string ColorMapList() {
  std::string list;
  for (const std::string_view name : ColorMapNames()) list.append(list.empty() ? "" : ", ").append(name);
  return list;
}

int ColorOptions::Look(const CommandContext& context, const std::string& colors, const std::string& range,
                       const std::string& sun) {
  if (const int status = LookAtSun(context, sun); status != kDone) return status;
  if (const int status = LookAtRange(context, range); status != kDone) return status;
  if (colors.empty() || IsColorMap(colors)) return kDone;
  if (range_) {
    return context.Misuse("--range is for the built-in tables, and " + colors + " is none",
                          "leave it out, or name one of " + ColorMapList());
  }
  return LoadTable(context, colors);
}

int ColorOptions::LookAtSun(const CommandContext& context, const std::string& sun) {
  if (sun.empty()) return kDone;
  ChartSettings::Sun told;
  double* const numbers[] = {&told.azimuth, &told.elevation, &told.factor};
  if (!ParseNumbers(sun, numbers, 1)) {
    return context.Misuse("--sun: '" + sun + "' is no sun AZ,EL,FACTOR", "give one as 45,45,3");
  }
  if (told.elevation < 0 || told.elevation > 90) {
    return context.Misuse("--sun: a sun stands from 0 to 90 degrees high", "give one as 45,45,3");
  }
  sun_ = told;
  return kDone;
}

int ColorOptions::LookAtRange(const CommandContext& context, const std::string& range) {
  if (range.empty()) return kDone;
  ChartSettings::Range told;
  double* const numbers[] = {&told.low, &told.high};
  if (!ParseNumbers(range, numbers, 2)) {
    return context.Misuse("--range: '" + range + "' is no range LOW,HIGH", "give one as -20,-5");
  }
  if (!(told.low < told.high) || !std::isfinite(told.high - told.low)) {
    return context.Misuse("--range: '" + range + "' doesn't rise", "give the lower end first");
  }
  range_ = told;
  return kDone;
}

int ColorOptions::LoadTable(const CommandContext& context, const std::string& path) {
  FileObject file;
  if (!file.FileOpen(FromUtf8(path))) {
    return context.Fail(path, "neither a built-in table of colours nor a file that can be read",
                        "name a file, or one of " + ColorMapList());
  }
  ColorTable table;
  if (!table.FileOpen(file)) {
    return context.Fail("", ToUtf8(table.LastError()), "give a colour table, or a .cpt file");
  }
  if (table.Classes().empty()) return context.Fail(path, "has no colours", "give one that has");
  table_ = std::move(table);
  return kDone;
}

}  // namespace vak
