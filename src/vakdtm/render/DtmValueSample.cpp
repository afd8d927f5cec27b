#include "vakdtm/render/DtmValueSample.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vakdtm/render/EndOfToday.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"

namespace vak {
namespace {

constexpr std::size_t kMostValues = std::size_t{1} << 20;

}  // namespace

DtmValueSample::DtmValueSample(int block, double unitFactor, bool gradientMode)
    : block_(block),
      unitFactor_(unitFactor),
      gradientMode_(gradientMode),
      lowest_(std::numeric_limits<double>::infinity()),
      highest_(-std::numeric_limits<double>::infinity()) {}

bool DtmValueSample::Init(DtmAccess& access) {
  access_ = &access;
  endOfToday_ = EndOfToday();
  return true;
}

bool DtmValueSample::FindValue(int row, int col, double& value) {
  value = EmptyDouble();
  if (!access_->GetDoubleValue(row, col, block_, value) || IsEmptyValue(value)) return false;
  if (block_ == tTIM) {
    value = (endOfToday_ - value) / kSecondsOfDay;
  } else if (gradientMode_) {
    value = 0;
    // A cell that has no neighbour above or below comes out as no number.
    if (!access_->GetGradientValue(row, col, dVAL, value) || std::isnan(value)) {
      hasSlopeless_ = true;
      return false;
    }
  } else {
    value *= unitFactor_;
  }
  return std::isfinite(value);
}

bool DtmValueSample::ProcessCell(int row, int col, double& /*area*/) {
  double value = 0;
  if (!FindValue(row, col, value)) return true;
  lowest_ = std::min(lowest_, value);
  highest_ = std::max(highest_, value);
  if (passed_++ % every_ != 0) return true;
  values_.push_back(value);
  isSorted_ = false;
  if (values_.size() < kMostValues) return true;
  // Every other one goes, and from here on every other one comes.
  for (std::size_t i = 0; 2 * i < values_.size(); ++i) values_[i] = values_[2 * i];
  values_.resize((values_.size() + 1) / 2);
  every_ *= 2;
  return true;
}

double DtmValueSample::Quantile(double share) {
  if (!isSorted_) std::sort(values_.begin(), values_.end());
  isSorted_ = true;
  const double place = std::clamp(share, 0.0, 1.0) * static_cast<double>(values_.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values_.size() - 1);
  const double part = place - static_cast<double>(below);
  return values_[below] + part * (values_[above] - values_[below]);
}

}  // namespace vak
