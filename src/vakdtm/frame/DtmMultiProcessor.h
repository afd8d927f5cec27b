#pragma once

#include <memory>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"

namespace vak {

/// Several processors on one walk, so that the model is read once for all of them.
///
/// Members are called in the order of adding, with the same plan area. It is a chain of filters: when a member leaves 0
/// or less in the plan area, the members behind it don't see this area or cell. A not-a-number in it (the mark of a
/// cell without data) lets the chain go on.
///
/// `InitRow` of the members is never called: a processor that relies on it can't be a member.
class DtmMultiProcessor : public DtmProcessor {
 public:
  DtmMultiProcessor() = default;

  /// Copies hold a `Clone` of each member, in order. A copy of a group with a member that can't be cloned is of no use:
  /// its `Init` answers false.
  DtmMultiProcessor(const DtmMultiProcessor& other);
  /// The same; own members are deleted first. Without effect on itself.
  DtmMultiProcessor& operator=(const DtmMultiProcessor& other);

  /// Deletes the members, last first.
  ~DtmMultiProcessor() override;

  /// Adds a member behind the others, owned from now on. Null is no member.
  void AddProcessor(DtmProcessor* processor);
  int NumProcessors() const { return static_cast<int>(members_.size()); }
  /// Deletes the members, last first.
  void ClearProcessors();

  /// A copy; null when one of the members can't be cloned.
  DtmProcessor* Clone() override;

  /// Members in order; the first false ends the call with false. True without any.
  bool Init(DtmAccess& access) override;
  /// Members in reverse order; the first false ends the call with false, and those before it aren't told.
  bool Fini() override;
  /// A member's false ends the call with false.
  bool ProcessArea(int row, int col, double& area) override;
  bool ProcessCell(int row, int col, double& area) override;

 private:
  void CloneMembers(const DtmMultiProcessor& other);

  std::vector<std::unique_ptr<DtmProcessor>> members_;  // none of them null
  bool incomplete_ = false;                             // a member was lost in copying
};

}  // namespace vak
