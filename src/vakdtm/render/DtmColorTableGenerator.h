#pragma once

#include <memory>
#include <string>

#include "vakdtm/analysis/DtmMinMaxProcessor.h"
#include "vakdtm/services/color/Color.h"
#include "vakdtm/services/files/DataSearch.h"

namespace vak {

class ColorTable;
class SmartFileImpl;

/// Makes the colour table for a kind of value from the values that it is shown, and writes it to a file: after
/// `ProcessAllCells` the file is there. For one thread; it can be moved, not copied.
///
/// Of times the table holds ages in days, reckoned from the midnight (UTC) that comes, as the drawing does. The range
/// goes in as it is, from the age of the earliest time, the largest, to that of the latest: the first colour belongs to
/// the earliest.
class DtmColorTableGenerator : public DtmMinMaxProcessor {
 public:
  /// @param fileName     completed as all names of colour tables are, at the end of the walk.
  /// @param steps        how many classes, 1 to `ColorTable::kMostClasses`.
  /// @param colored      blue to red; else black to white.
  /// @param reversed     the two ends change places.
  /// @param threeColors  black over a brown to yellow, whatever `colored` says; reversed, black over yellow to the
  ///                     brown: black is always first.
  DtmColorTableGenerator(int block, const std::wstring& fileName, int steps, bool colored, bool reversed,
                         bool threeColors);
  /// From one colour to another.
  DtmColorTableGenerator(int block, const std::wstring& fileName, int steps, Color first, Color second);
  DtmColorTableGenerator(DtmColorTableGenerator&& other) noexcept;
  DtmColorTableGenerator& operator=(DtmColorTableGenerator&& other) noexcept;
  DtmColorTableGenerator(const DtmColorTableGenerator&) = delete;
  DtmColorTableGenerator& operator=(const DtmColorTableGenerator&) = delete;
  ~DtmColorTableGenerator() override;

  /// Writes the table. @return true also when no value was seen, and no file is written then. False when the table
  /// can't be made (a count of steps, or values, that no table can have) or written.
  bool Fini() override;

 private:
  int block_;
  std::wstring fileName_;
  int steps_;
  bool threeColors_;
  Color first_;
  Color second_;
  unsigned fileType_ = kColorTableFile;
  std::unique_ptr<ColorTable> table_;
  std::wstring savedName_;
  std::unique_ptr<SmartFileImpl> file_;
};

}  // namespace vak
