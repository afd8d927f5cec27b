#include "vakdtm/services/geodesy/ProjectDefinition.h"

#include <memory>

#include "vakdtm/services/jobs/Installed.h"
#include "vakdtm/services/text/CVakUnitCnv.h"

namespace vak {
namespace {

Installed<const ProjectDefinition>& Current() {
  static Installed<const ProjectDefinition> current;
  return current;
}

}  // namespace

int ProjectDefinition::Decimals(int unitKind) const {
  switch (unitKind) {
    case kUnitHorizontalLength:
      return coordinateDecimals_;
    case kUnitVolume:
      return volumeDecimals_;
    default:
      return heightDecimals_;
  }
}

std::shared_ptr<const ProjectDefinition> GetCurrentProjectDefinition() {
  if (auto current = Current().Get()) return current;
  static const auto asBuilt = std::make_shared<const ProjectDefinition>();
  return asBuilt;
}

void SetCurrentProjectDefinition(const ProjectDefinition& project) {
  Current().Exchange(std::make_shared<const ProjectDefinition>(project));
}

}  // namespace vak
