#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

namespace vak {

/// Tells how many of a steady stream of things are due at a moment, and when the next one is.
///
/// After a hold-up, a second's worth at the most is made up for: whoever can't keep up goes as fast as he can, and a
/// machine that was asleep doesn't wake to a flood.
class Pace {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  static constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

  /// @param rate  things a second, above 0; 0: no limit. The first one is due at `start`.
  Pace(double rate, Time start) : rate_(rate), start_(start) {}

  /// @param made  how many there are already. @return how many there should be, `made` or more.
  std::uint64_t Due(Time now, std::uint64_t made) {
    if (rate_ == 0) return kNoLimit;
    const double owed = Seconds(now - start_) * rate_ - static_cast<double>(made);
    if (owed > std::max(1.0, rate_)) start_ += ToDuration((owed - rate_) / rate_);
    const double due = Seconds(now - start_) * rate_ + 1;
    return due < static_cast<double>(made) ? made : std::max(made, static_cast<std::uint64_t>(due));
  }

  /// @return how long it is from `now` until there should be one more than `made`; not below 0.
  Duration UntilNext(Time now, std::uint64_t made) const {
    if (rate_ == 0) return Duration::zero();
    const double seconds = static_cast<double>(made) / rate_ - Seconds(now - start_);
    return ToDuration(std::clamp(seconds, 0.0, kLongest));
  }

 private:
  static constexpr double kLongest = 1e6;  // s, so that it fits the type

  static double Seconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }
  static Duration ToDuration(double seconds) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(std::min(seconds, kLongest)));
  }

  double rate_;
  Time start_;
};

}  // namespace vak
