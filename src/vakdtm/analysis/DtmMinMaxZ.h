#pragma once

#include <string>

#include "vakdtm/services/jobs/Processor.h"

namespace vak {

class DtmFile;

/// Makes a colour table for the heights of a whole model: 256 classes from its deepest to its highest value.
///
/// Works from the ranges that the areas keep, so that cells are read only where an area has none. Runs on a job's
/// thread beside other users of the model. A run that is stopped makes the table for the areas seen so far.
class DtmMinMaxZ : public Processor {
 public:
  /// @param file            opened here and closed by the destructor; null or one that can't be opened: `Process`
  ///                        answers false.
  /// @param colorTablePath  where the table goes; completed as all names of colour tables are.
  DtmMinMaxZ(DtmFile* file, std::wstring colorTablePath);
  ~DtmMinMaxZ() override;

  /// @return true when the table was written, and when the model has no heights, where none is written. False when
  /// an area can't be read, when a height is beyond the range of a float, and when the table can't be written.
  bool Process() override;

 private:
  /// Widens the two by the area's range, which is worked out from the cells where the area keeps none.
  /// @return false when there is no such area or its cells can't be read.
  static bool AddArea(DtmFile& file, int index, float& low, float& high);
  bool SaveTable(float low, float high) const;

  DtmFile* file_;
  std::wstring colorTablePath_;
};

}  // namespace vak
