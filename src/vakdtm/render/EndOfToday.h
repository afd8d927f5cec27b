#pragma once

#include <cmath>

#include "vakdtm/services/platform/Platform.h"

namespace vak {

constexpr double kSecondsOfDay = 86400.0;

/// The midnight (UTC) that comes, in seconds since 1970: what the ages of cells are reckoned from, so that all that was
/// measured today is between 0 and 1 day old, whatever the hour. At midnight itself, now.
inline double EndOfToday() { return std::ceil(static_cast<double>(_time64(nullptr)) / kSecondsOfDay) * kSecondsOfDay; }

}  // namespace vak
