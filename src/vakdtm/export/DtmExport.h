#pragma once

#include <vector>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/files/memfile.h"

namespace vak {

/// Writes the cells of a model, all kinds of each as they are, as a compact stream into a file in memory.
///
/// Numbers are little-endian. First the number of the model's kinds (4 bytes) and their ids (4 bytes each), in the
/// model's order; then a record for each cell that has a `dVAL`, in the order of the walk: row and column (4 bytes
/// each) and a value for each kind in order, 1 byte for the letter c, 8 for d, 4 for f, i and t. Kinds of the letter u
/// stand in the header alone. Where a block is missing, the kind's empty value stands.
///
/// A model without `dVAL` has no records. A walk over cells always ends with true: that memory was there is told by the
/// file.
class DtmExport : public DtmProcessor {
 public:
  /// @param out  written to behind what it holds; not owned. Null: `Init` answers false.
  explicit DtmExport(memfile* out) : out_(out) {}

  bool Init(DtmAccess& access) override;
  bool ProcessCell(int row, int col, double& area) override;

 private:
  memfile* out_;
  DtmAccess* access_ = nullptr;
  std::vector<int> blockIds_;
  std::vector<char> record_;  // kept for its memory
};

}  // namespace vak
