#pragma once

#include <vector>

#include "vakdtm/services/jobs/Processor.h"

namespace vak {

class DtmAccess;
class DtmFile;
class DtmProcessor;

/// Shows all cells of listed areas, empty ones too, in the order of the list; in each area rows upwards and columns to
/// the right. For known, short lists: it reports no progress and can't be stopped.
///
/// `ProcessArea` false ends the walk with false; `InitRow` is never called.
class DtmAreaCellProcessor : public Processor {
 public:
  /// @param access,processor  not owned. Without one of them, or a file in the access, `Process` answers false.
  /// @param areas  places in the file's list of areas (`DtmFile::GetArea`); must outlive the walker, which looks at it
  ///               when it runs: what the processor adds to the list meanwhile is walked too. A place that the file
  ///               doesn't have ends the walk there with false.
  DtmAreaCellProcessor(DtmAccess* access, DtmProcessor* processor, const std::vector<int>& areas);

  bool Process() override;

 private:
  bool WalkArea(const DtmFile& file, int place);

  DtmAccess* const access_;
  DtmProcessor* const processor_;
  const std::vector<int>& areas_;
};

}  // namespace vak
