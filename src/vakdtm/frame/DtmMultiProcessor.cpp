#include "vakdtm/frame/DtmMultiProcessor.h"

#include <memory>
#include <utility>

namespace vak {

DtmMultiProcessor::DtmMultiProcessor(const DtmMultiProcessor& other) : DtmProcessor(other) { CloneMembers(other); }

DtmMultiProcessor& DtmMultiProcessor::operator=(const DtmMultiProcessor& other) {
  if (this == &other) return *this;
  ClearProcessors();
  CloneMembers(other);
  return *this;
}

DtmMultiProcessor::~DtmMultiProcessor() { ClearProcessors(); }

void DtmMultiProcessor::CloneMembers(const DtmMultiProcessor& other) {
  incomplete_ = other.incomplete_;
  members_.reserve(other.members_.size());
  for (const auto& member : other.members_) {
    std::unique_ptr<DtmProcessor> clone(member->Clone());
    if (clone != nullptr) {
      members_.push_back(std::move(clone));
    } else {
      incomplete_ = true;
    }
  }
}

void DtmMultiProcessor::AddProcessor(DtmProcessor* processor) {
  std::unique_ptr<DtmProcessor> member(processor);
  if (member != nullptr) members_.push_back(std::move(member));
}

void DtmMultiProcessor::ClearProcessors() {
  while (!members_.empty()) members_.pop_back();
  incomplete_ = false;
}

DtmProcessor* DtmMultiProcessor::Clone() {
  auto clone = std::make_unique<DtmMultiProcessor>(*this);
  return clone->incomplete_ ? nullptr : clone.release();
}

bool DtmMultiProcessor::Init(DtmAccess& access) {
  if (incomplete_) return false;
  for (const auto& member : members_) {
    if (!member->Init(access)) return false;
  }
  return true;
}

bool DtmMultiProcessor::Fini() {
  for (auto member = members_.rbegin(); member != members_.rend(); ++member) {
    if (!(*member)->Fini()) return false;
  }
  return true;
}

bool DtmMultiProcessor::ProcessArea(int row, int col, double& area) {
  for (const auto& member : members_) {
    if (!member->ProcessArea(row, col, area)) return false;
    if (area <= 0.0) return true;
  }
  return true;
}

bool DtmMultiProcessor::ProcessCell(int row, int col, double& area) {
  for (const auto& member : members_) {
    if (!member->ProcessCell(row, col, area)) return false;
    if (area <= 0.0) return true;
  }
  return true;
}

}  // namespace vak
