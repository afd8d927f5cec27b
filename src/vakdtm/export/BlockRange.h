#pragma once

#include <functional>

namespace vak {

class DtmAccess;

/// Finds the lowest and the highest value of a kind in a model, of those that are finite numbers, area by area.
/// @param stop  asked at every area; null: never.
/// @return false when there is none or it was stopped; `low` and `high` are as they were then.
bool FindBlockRange(DtmAccess& access, int blockId, const std::function<bool()>& stop, double& low, double& high);

}  // namespace vak
