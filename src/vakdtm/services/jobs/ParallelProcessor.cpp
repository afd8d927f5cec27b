#include "vakdtm/services/jobs/ParallelProcessor.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace vak {
namespace {

bool InitializeOne(Processor& member) {
  try {
    return member.Initialize();
  } catch (...) {
    return false;
  }
}

bool ProcessOne(Processor& member) {
  try {
    return member.Process();
  } catch (...) {
    return false;
  }
}

}  // namespace

void ParallelProcessor::AddProcessor(Processor* processor) {
  std::unique_ptr<Processor> member(processor);
  if (member != nullptr) members_.push_back(std::move(member));
}

bool ParallelProcessor::Initialize() {
  bool all = true;
  for (const auto& member : members_) all = InitializeOne(*member) && all;
  return all;
}

bool ParallelProcessor::Process() {
  if (IsStopped()) return false;
  std::atomic<bool> done{true};
  const auto run = [this, &done](Processor& member) {
    if (!Run(member)) done.store(false);
  };
  std::vector<Processor*> left;
  {
    std::vector<std::jthread> threads;  // joined at the end of the block
    threads.reserve(members_.size());
    for (const auto& member : members_) {
      try {
        threads.emplace_back([&run, processor = member.get()] { run(*processor); });
      } catch (const std::system_error&) {
        left.push_back(member.get());
      }
    }
    for (Processor* member : left) run(*member);
  }
  return done.load();
}

double ParallelProcessor::GetProgress() const {
  double sum = 0.0;
  for (const auto& member : members_) sum += member->GetProgress();
  return std::min(sum, 1.0);
}

void ParallelProcessor::Stop() {
  Processor::Stop();
  if (IsStopped()) StopMembers();
}

bool ParallelProcessor::Run(Processor& member) {
  if (ProcessOne(member)) return true;
  if (!member.IsStopped()) StopMembers();
  return false;
}

void ParallelProcessor::StopMembers() {
  for (const auto& member : members_) member->Stop();
}

}  // namespace vak
