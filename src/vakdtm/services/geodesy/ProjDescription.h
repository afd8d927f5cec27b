#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/geodesy/GeoCoordSysDescription.h"

// As PROJ calls them.
struct PJconsts;
struct pj_ctx;

namespace vak {

struct DestroyPj {
  void operator()(PJconsts* object) const;
};
/// An object of PROJ with its owner.
using PjOwner = std::unique_ptr<PJconsts, DestroyPj>;

/// Takes a coordinate system of PROJ apart.
/// @param context,system  good during the call.
/// @param fault  gets what kind of system it is, "an earth-centred system", when it is none of the plane.
/// @return false then, with nothing changed in `description`.
bool DescribeSystem(pj_ctx* context, const PJconsts* system, GeoCoordSysDescription& description, std::wstring& fault);

}  // namespace vak
