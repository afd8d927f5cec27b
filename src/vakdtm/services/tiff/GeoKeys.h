#pragma once

#include <map>
#include <string>
#include <vector>

namespace vak {

struct GeoCoordSysDescription;

/// The keys of a GeoTIFF image, by their numbers: what the format calls its configuration, geographic, projected and
/// vertical parameters. A plain value.
struct GeoKeys {
  std::map<int, int> numbers;
  std::map<int, std::vector<double>> reals;
  std::map<int, std::string> texts;
  bool revised = false;  ///< whether they need version 1.1 of the format

  bool operator==(const GeoKeys&) const = default;
};

/// The keys that say what kind a system is, its name, and the geographic system that it stands on. There always are.
GeoKeys GeographicKeys(const GeoCoordSysDescription& system);

/// Makes all keys of a system: those above, its plane and its heights.
/// @param units  the name of the unit that x and y have: "Metre", "Foot" or "US Survey Foot". Any other counts as the
///               system's own, as do all for a system that is in none of these.
/// @param keys   gets them, in place of what was in it.
/// @param fault  gets, on false, what the format can't say of the system.
/// @return false when it can't express the projection, where the keys are those of a system that has a name alone, or
/// the heights, where they are those of the plane.
bool MakeGeoKeys(const GeoCoordSysDescription& system, const std::wstring& units, GeoKeys& keys, std::wstring& fault);

}  // namespace vak
