#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/jobs/Processor.h"

namespace vak::test {

/// A call that a processor gets, with what it was called with.
struct Call {
  enum Kind : char { kInit = 'I', kArea = 'A', kRow = 'R', kCell = 'C', kFini = 'F' };

  Kind kind;
  int row = 0;
  int col = 0;     // or colBegin
  int colEnd = 0;  // of a row
  double weight = 0;

  bool operator==(const Call&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << static_cast<char>(call.kind) << '(' << call.row << ' ' << call.col << ' ' << call.colEnd << ' '
               << call.weight << ')';
  }
};
using Calls = std::vector<Call>;

inline Call Init() { return {Call::kInit}; }
inline Call Area(int row, int col, double weight) { return {Call::kArea, row, col, 0, weight}; }
inline Call Row(int row, int colBegin, int colEnd) { return {Call::kRow, row, colBegin, colEnd, 0}; }
inline Call Cell(int row, int col, double weight) { return {Call::kCell, row, col, 0, weight}; }
inline Call Fini() { return {Call::kFini}; }

/// What is to happen at a call, by its number from 0.
enum class Deed { kFalse, kZero, kStop };
using Deeds = std::map<std::size_t, Deed>;

/// Writes down what it is shown, and does at some calls what it is told to.
class WalkLog : public DtmProcessor {
 public:
  explicit WalkLog(Deeds deeds = {}) : deeds_(std::move(deeds)) {}

  /// The walker to be stopped.
  void SetWalker(Processor* walker) { walker_ = walker; }

  /// Asked at every call, behind the deeds: may do anything, and its false is the answer.
  std::function<bool(const Call&, double& weight)> react = [](const Call&, double&) { return true; };

  bool Init(DtmAccess& access) override {
    shown = &access;
    return Note(test::Init());
  }
  bool Fini() override { return Note(test::Fini()); }
  bool InitRow(int row, int colBegin, int colEnd) override { return Note(Row(row, colBegin, colEnd)); }
  bool ProcessArea(int row, int col, double& area) override { return Note(Area(row, col, area), area); }
  bool ProcessCell(int row, int col, double& area) override { return Note(Cell(row, col, area), area); }

  /// The calls of one kind.
  Calls Of(Call::Kind kind) const {
    Calls found;
    for (const Call& call : calls) {
      if (call.kind == kind) found.push_back(call);
    }
    return found;
  }

  Calls calls;
  DtmAccess* shown = nullptr;

 private:
  static constexpr std::size_t kMostCalls = 100000;

  bool Note(const Call& call) {
    double weight = 0;
    return Note(call, weight);
  }
  bool Note(const Call& call, double& weight) {
    // A walk that doesn't end is to fail its test, not to take all memory.
    if (calls.size() >= kMostCalls) return false;
    const auto deed = deeds_.find(calls.size());
    calls.push_back(call);
    bool answer = true;
    if (deed != deeds_.end()) {
      if (deed->second == Deed::kFalse) answer = false;
      if (deed->second == Deed::kZero) weight = 0;
      if (deed->second == Deed::kStop && walker_ != nullptr) walker_->Stop();
    }
    return react(call, weight) && answer;
  }

  Deeds deeds_;
  Processor* walker_ = nullptr;
};

/// What the plain loops of the tests expect a walk to do: the calls, the answer, and the progress at the end.
class PlainWalk {
 public:
  explicit PlainWalk(Deeds deeds) : deeds_(std::move(deeds)) {}

  /// @return the processor's answer. @param weight  what it leaves there.
  bool Show(const Call& call, double* weight = nullptr) {
    const auto deed = deeds_.find(calls.size());
    calls.push_back(call);
    if (weight != nullptr) *weight = call.weight;
    if (deed == deeds_.end()) return true;
    if (deed->second == Deed::kZero && weight != nullptr) *weight = 0;
    if (deed->second == Deed::kStop) stopped = true;
    return deed->second != Deed::kFalse;
  }

  Calls calls;
  bool stopped = false;
  std::int64_t done = 0;
  std::int64_t total = 0;

 private:
  Deeds deeds_;
};

}  // namespace vak::test
