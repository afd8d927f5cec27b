#pragma once

#include <unordered_map>

#include "vakdtm/frame/AreaExt.h"

namespace vak {

class DtmArea;

/// The range of values of each area, so that contours and outlines pass by an area that a level can't cross. A value;
/// takes no lock, each thread works on one of its own.
class AreaExtMap {
 public:
  /// The area's range; an empty one is entered for an area that isn't known yet. Good until `Clear`.
  AreaExt& operator[](const DtmArea* area) { return map_[area]; }

  void Clear() { map_.clear(); }

 private:
  std::unordered_map<const DtmArea*, AreaExt> map_;
};

}  // namespace vak
