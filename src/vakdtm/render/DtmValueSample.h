#pragma once

#include <cstddef>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"

namespace vak {

/// Learns what values a drawing is going to colour: driven by `DrawModel` as the drawing is, it sees the cells that the
/// drawing paints, and costs as little.
///
/// Values are those that a table of colours is asked for: as shown (value x factor), ages in days of times, slopes in
/// gradient mode. What is no finite number isn't counted. Of very many values some stand for all, evenly spread over
/// the walk; the extremes are those of all.
class DtmValueSample final : public DtmProcessor {
 public:
  /// @param unitFactor  by which values are shown; not for times and slopes.
  DtmValueSample(int block, double unitFactor, bool gradientMode);

  bool Init(DtmAccess& access) override;
  bool ProcessCell(int row, int col, double& area) override;

  /// Whether there were cells with a value and no slope, in gradient mode.
  bool HasSlopeless() const { return hasSlopeless_; }

  bool IsEmpty() const { return passed_ == 0; }
  std::size_t Count() const { return passed_; }
  /// The extremes; of a sample that isn't empty.
  double Lowest() const { return lowest_; }
  double Highest() const { return highest_; }
  /// The value below which a share of the values lies. @param share  0 to 1. Of a sample that isn't empty.
  double Quantile(double share);

 private:
  bool FindValue(int row, int col, double& value);

  int block_;
  double unitFactor_;
  bool gradientMode_;
  DtmAccess* access_ = nullptr;
  double endOfToday_ = 0;
  bool hasSlopeless_ = false;
  double lowest_;
  double highest_;
  std::vector<double> values_;
  bool isSorted_ = false;
  std::size_t every_ = 1;  // of so many values one is kept
  std::size_t passed_ = 0;
};

}  // namespace vak
