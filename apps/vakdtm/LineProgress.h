#pragma once

#include <cstddef>

namespace vak {

/// How far a trace of lines is, from what is known of it: the reading of the model, if that goes first, then the
/// tracing and the writing of each step, which go on side by side. For one thread at a time.
class LineProgress {
 public:
  /// @param areas  of the model.
  /// @param steps  to be traced and written.
  LineProgress(int areas, std::size_t steps) : areas_(areas), steps_(steps) {}

  void SetSteps(std::size_t steps) { steps_ = steps; }

  /// So many areas are read.
  void Read(int areas);
  /// So many steps are traced, and of the next one so many areas.
  void Traced(std::size_t steps, int areas);
  /// So many steps are written, and of the next one `lines` of `all`.
  void Written(std::size_t steps, std::size_t lines, std::size_t all);

  /// @return 0 to 1.
  double Fraction() const;

 private:
  double Part(std::size_t steps, double next) const;

  int areas_;
  std::size_t steps_;
  double read_ = -1;  // below 0: it doesn't go first
  double traced_ = 0;
  double written_ = 0;
};

}  // namespace vak
