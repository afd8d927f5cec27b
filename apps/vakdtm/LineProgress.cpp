#include "LineProgress.h"

#include <algorithm>

namespace vak {
namespace {

// What reading takes of the whole, roughly: nobody knows before how many lines there will be.
constexpr double kReading = 0.2;

double Share(double done, double all) { return all > 0 ? std::min(done / all, 1.0) : 1.0; }

}  // namespace

void LineProgress::Read(int areas) { read_ = Share(areas, areas_); }

void LineProgress::Traced(std::size_t steps, int areas) { traced_ = Part(steps, Share(areas, areas_)); }

void LineProgress::Written(std::size_t steps, std::size_t lines, std::size_t all) {
  written_ = Part(steps, Share(static_cast<double>(lines), static_cast<double>(all)));
}

double LineProgress::Fraction() const {
  const double lines = (traced_ + written_) / 2;
  return read_ < 0 ? lines : kReading * read_ + (1 - kReading) * lines;
}

double LineProgress::Part(std::size_t steps, double next) const {
  return steps < steps_ ? (static_cast<double>(steps) + next) / static_cast<double>(steps_) : 1.0;
}

}  // namespace vak
