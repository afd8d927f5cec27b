#pragma once

#include <optional>
#include <string>

#include "vakdtm/render/DtmChart.h"
#include "vakdtm/services/color/ColorTable.h"

#include "Command.h"

namespace vak {

/// The names of the built-in tables of colours, with commas between.
std::string ColorMapList();

/// What `render` and `export geotiff` say of colours, in the same words.
class ColorOptions {
 public:
  /// Understands the words, and reads the table where they name a file. An empty text counts as not given.
  /// @param colors  a built-in table or a file. @param range  "LOW,HIGH". @param sun  "AZ,EL,FACTOR", of which the last
  ///                two may be left out.
  /// @return a status, told already when it isn't `kDone`.
  int Look(const CommandContext& context, const std::string& colors, const std::string& range, const std::string& sun);

  const std::optional<ChartSettings::Sun>& GetSun() const { return sun_; }
  const std::optional<ChartSettings::Range>& GetRange() const { return range_; }
  /// What the file has; none where no file is named.
  const std::optional<ColorTable>& GetTable() const { return table_; }

 private:
  int LookAtSun(const CommandContext& context, const std::string& sun);
  int LookAtRange(const CommandContext& context, const std::string& range);
  int LoadTable(const CommandContext& context, const std::string& path);

  std::optional<ChartSettings::Sun> sun_;
  std::optional<ChartSettings::Range> range_;
  std::optional<ColorTable> table_;
};

}  // namespace vak
