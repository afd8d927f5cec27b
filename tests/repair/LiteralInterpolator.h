#pragma once

#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak::test {

/// Circular interpolation as one would tell it, a cell at a time and with no thought of time: what the interpolator's
/// results are compared with, bit for bit.
class LiteralInterpolator final : public DtmProcessor {
 public:
  LiteralInterpolator(int block, int radius) : block_(block), radius_(radius) {}

  bool Init(DtmAccess& access) override {
    access_ = &access;
    if (block_ != 0) {
      targets_.push_back(block_);
    } else {
      for (const int id : {dVAL, dMIN, dMAX}) {
        if (access.GetDtmFile()->HasBlockId(id)) targets_.push_back(id);
      }
    }
    return true;
  }

  bool ProcessCell(int row, int col, double& /*weight*/) override {
    std::vector<double> means;
    if (!Find(row, col, access_->GetDtmFile()->HasBlockId(iNUM), means)) return true;
    for (std::size_t i = 0; i < targets_.size(); ++i) {
      if (!IsEmptyValue(means[i]) &&
          !access_->SetDoubleValue(row, col, targets_[i], means[i], DtmBlockId(targets_[i]).IsZ())) {
        return false;
      }
    }
    return true;
  }

  void InterpolateCell(int row, int col, double& value) {
    std::vector<double> means;
    if (!Find(row, col, false, means)) return;
    for (const double mean : means) {
      if (!IsEmptyValue(mean)) value = mean;
    }
  }

 private:
  struct Source {
    int row, col;
    double distance, angle;
  };

  bool Has(int row, int col, int id, double& value) const {
    return access_->GetDoubleValue(row, col, id, value) && !IsEmptyValue(value);
  }

  std::vector<Source> Sources(int row, int col, bool needsHits) const {
    std::vector<Source> sources;
    std::array<bool, 8> used{};
    for (int ring = 1; ring <= radius_; ++ring) {
      int r = row + ring;
      int c = col + ring;
      for (int step = 0; step < 8 * ring; ++step) {
        Source source{r, c, std::sqrt(static_cast<double>((c - col) * (c - col) + (r - row) * (r - row))),
                      std::atan2(static_cast<double>(r - row), static_cast<double>(c - col)) / std::numbers::pi * 180};
        if (source.angle < 0) source.angle += 360;
        bool& flag = used[static_cast<std::size_t>(source.angle / 360.0 * 8.0)];
        if (IsIn(source, row, col) && (!needsHits || Hits(r, c) > 0) && !flag) {
          flag = true;
          sources.push_back(source);
        }
        if (step < 2 * ring) {
          --c;
        } else if (step < 4 * ring) {
          --r;
        } else if (step < 6 * ring) {
          ++c;
        } else {
          ++r;
        }
      }
    }
    return sources;
  }

  bool IsIn(Source& source, int row, int col) const {
    double x = 0;
    double y = 0;
    const bool known = block_ == dMIN   ? Has(source.row, source.col, fXMN, x) && Has(source.row, source.col, fYMN, y)
                       : block_ == dMAX ? Has(source.row, source.col, fXMX, x) && Has(source.row, source.col, fYMX, y)
                                        : false;
    if (known) {
      const double c = access_->GetDtmFile()->CellSize();
      x += (source.col - col) * c;
      y += (source.row - row) * c;
      source.distance = std::sqrt(x * x + y * y) / c;
    }
    return !(source.distance > radius_);
  }

  double Hits(int row, int col) const {
    double hits = 0;
    return Has(row, col, iNUM, hits) ? hits : 0;
  }

  static double Arc(const std::vector<Source>& sources) {
    if (sources.empty()) return 0;
    double first = sources[0].angle;
    double last = first;
    for (const Source& source : sources) {
      const double a = source.angle;
      if (last < first ? (a >= first || a <= last) : (a >= first && a <= last)) continue;
      double forward = a - first;
      double backward = last - a;
      if (a < first) forward += 360;
      if (last < a) backward += 360;
      (forward <= backward ? last : first) = a;
    }
    return last < first ? last + 360 - first : last - first;
  }

  /// @param means  of each target; empty where there is none.
  bool Find(int row, int col, bool needsHits, std::vector<double>& means) const {
    bool complete = true;
    double value = 0;
    for (const int id : targets_) complete = Has(row, col, id, value) && complete;
    if (complete) return false;
    const std::vector<Source> sources = Sources(row, col, needsHits);
    if (Arc(sources) < 180) return false;
    for (const int id : targets_) {
      double sum = 0;
      double weights = 0;
      for (const Source& source : sources) {
        if (!Has(source.row, source.col, id, value)) continue;
        sum += value / source.distance;
        weights += 1 / source.distance;
      }
      means.push_back(weights > 0 ? sum / weights : EmptyDouble());
    }
    return true;
  }

  int block_;
  int radius_;
  DtmAccess* access_ = nullptr;
  std::vector<int> targets_;
};

}  // namespace vak::test
