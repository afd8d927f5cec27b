#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "vakdtm/store/GridFormat.h"

#include "crash/StateCheck.h"

namespace vak::test {

/// How many states are looked at.
struct ReplayEffort {
  int random = 40;        ///< for each stretch between two syncs
  int sizes = 2;          ///< of the file, for each stretch, at which sectors are looked at one by one
  int sectors = 8;        ///< for each stretch, of those that are looked at one by one
  int everyWorksOn = 8;   ///< one state in so many has a further survey go on
  int byteCuts = 4;       ///< places in each write at which a killed process may have stopped
  int everyUnsynced = 8;  ///< one write in so many of a file that never was on the disk is looked at
  std::uint32_t seed = 1;
};

/// What came of the states of one recording.
struct ReplayTally {
  struct Found {
    std::size_t count = 0;
    std::string example;  ///< the state with the fewest sectors that differ from what they were or came to be
    std::size_t size = 0;
  };

  std::size_t states = 0;
  std::map<Loss, Found> found;

  std::string Text() const {
    std::ostringstream text;
    for (const auto& [loss, what] : found) {
      text << "\n  " << NameOf(loss) << ": " << what.count << " of " << states << " states, for one " << what.example;
    }
    return text.str();
  }
};

/// Goes through the states in which a crash may have left the file of a recording.
class CrashReplay {
 public:
  CrashReplay(const DiskRecording& disk, const Truth& truth, ReplayEffort effort)
      : disk_(disk), truth_(truth), effort_(effort), random_(effort.seed) {}

  /// The power goes at any moment. @param leftOut  indices of syncs that have no effect.
  ReplayTally CutPower(const std::set<std::size_t>& leftOut = {}) {
    tally_ = {};
    number_ = 0;
    for (const Epoch& epoch : CutAtSyncs(disk_, leftOut)) {
      CutPowerIn(epoch);
      ++number_;
    }
    return std::move(tally_);
  }

  /// The process is killed at any moment: all that it wrote is there, the last write perhaps in part.
  ReplayTally Kill() {
    tally_ = {};
    ByteList bytes = disk_.first;
    std::optional<StateCheck> check;
    const Truth::Mark* last = nullptr;
    for (std::size_t i = 0; i <= disk_.events.size(); ++i) {
      const DiskEvent* const event = i < disk_.events.size() ? &disk_.events[i] : nullptr;
      if (truth_.MarkAt(i) == nullptr && i % static_cast<std::size_t>(effort_.everyUnsynced) != 0) {
        DiskRecording::ApplyTo(bytes, *event);
        continue;
      }
      // What is put later can't be in the file yet, so that all until the next mark have one check.
      const Truth::Mark* const mark = truth_.MarkAt(i);
      if (!check || mark != last) check.emplace(truth_, mark, disk_.events.size());
      last = mark;
      Look(*check, bytes, -1, 0, [&] { return "killed before event " + std::to_string(i) + Kind(i); });
      if (!event) break;
      if (event->kind == DiskEvent::kWrite) {
        for (const std::size_t count : CutsOf(*event)) {
          ByteList part = bytes;
          DiskRecording::ApplyTo(part, *event, count);
          Look(*check, part, event->at + static_cast<std::int64_t>(count), 0, [&] {
            return "killed in event " + std::to_string(i) + Kind(i) + " behind " + std::to_string(count) + " bytes";
          });
        }
      }
      DiskRecording::ApplyTo(bytes, *event);
    }
    return std::move(tally_);
  }

  /// A state in which a power cut may have left the file, and what its cells may hold.
  struct Left {
    ByteList bytes;
    Truth::Allowed allowed;
  };
  /// Some states of every stretch since the file was first on the disk.
  std::vector<Left> TakeStates(int ofEach) {
    std::vector<Left> taken;
    for (const Epoch& epoch : CutAtSyncs(disk_)) {
      if (epoch.Begin() == epoch.End() || !truth_.MarkAt(epoch.End())) continue;
      for (int i = 0; i < ofEach; ++i)
        taken.push_back({epoch.Build(RandomState(epoch)), truth_.Since(truth_.MarkAt(epoch.End()), epoch.End())});
    }
    return taken;
  }

 private:
  std::string Kind(std::size_t i) const {
    if (i >= disk_.events.size()) return " (end)";
    const DiskEvent& event = disk_.events[i];
    if (event.kind == DiskEvent::kSync) return " (sync)";
    if (event.kind == DiskEvent::kSize) return " (size " + std::to_string(event.at) + ")";
    return " (write of " + std::to_string(event.bytes.size()) + " at " + std::to_string(event.at) + ")";
  }

  /// Numbers of bytes of a write that have arrived, not all. The system takes a write over page by page, so a kill cuts
  /// it at the borders of sectors at the finest; cells are cut anywhere all the same.
  std::vector<std::size_t> CutsOf(const DiskEvent& event) {
    const std::size_t all = event.bytes.size();
    std::set<std::size_t> cuts;
    for (std::int64_t border = (event.at / kSectorSize + 1) * kSectorSize;
         border < event.at + static_cast<std::int64_t>(all); border += kSectorSize) {
      cuts.insert(static_cast<std::size_t>(border - event.at));
    }
    if (IsCells(event)) {
      for (int i = 0; i < effort_.byteCuts; ++i) cuts.insert(1 + random_() % (all - 1));
    }
    std::vector<std::size_t> sample;
    std::sample(cuts.begin(), cuts.end(), std::back_inserter(sample), effort_.byteCuts, random_);
    return sample;
  }

  /// Whether a write is of a block's cells: those are the large ones that begin with no chunk's header.
  static bool IsCells(const DiskEvent& event) {
    if (event.bytes.size() <= static_cast<std::size_t>(grid::kAreaPrefixSize)) return false;
    const std::int32_t tag = grid::Load<std::int32_t>(reinterpret_cast<const std::byte*>(event.bytes.data()));
    return tag != 0 && tag != grid::kArea && tag != grid::kHole && !grid::IsIndexTag(tag);
  }

  void CutPowerIn(const Epoch& epoch) {
    if (epoch.Begin() == epoch.End()) return;
    for (const Truth::Mark& mark : truth_.Marks()) {
      if (mark.events <= epoch.Begin() || mark.events > epoch.End() || epoch.IsBase(disk_, mark.events)) continue;
      ++tally_.states;
      ReplayTally::Found& found = tally_.found[Loss::kNotWrittenOut];
      if (found.count++ == 0) found.example = "at event " + std::to_string(mark.events);
    }
    const StateCheck check(truth_, truth_.MarkAt(epoch.End()), epoch.End());
    seen_.clear();
    const auto look = [&](const Epoch::State& state, std::string_view how) { LookAt(epoch, check, state, how); };
    const std::vector<std::size_t> singles = Pick(epoch.Sectors().size(), effort_.sectors);
    for (const std::size_t size : Pick(epoch.Sizes().size(), effort_.sizes)) {
      for (const bool isOld : {true, false}) {
        Epoch::State state = isOld ? epoch.Old() : epoch.New();
        state.size = epoch.Sizes()[size];
        look(state, isOld ? "no sector" : "all sectors");
        for (const std::size_t i : singles) {
          Epoch::State one = state;
          for (std::size_t form = 0; form < epoch.Sectors()[i].forms.size(); ++form) {
            one.forms[i] = form;
            look(one, isOld ? "one sector alone" : "one sector missing");
          }
        }
      }
    }
    for (int i = 0; i < effort_.random; ++i) look(RandomState(epoch), "random");
  }

  /// Indices below `all`, no more than `most`: the first, the last, and any others.
  std::vector<std::size_t> Pick(std::size_t all, int most) {
    std::vector<std::size_t> picked(all);
    std::iota(picked.begin(), picked.end(), std::size_t{0});
    if (all <= static_cast<std::size_t>(most)) return picked;
    std::shuffle(picked.begin() + 1, picked.end() - 1, random_);
    std::swap(picked[1], picked.back());
    picked.resize(static_cast<std::size_t>(most));
    return picked;
  }

  Epoch::State RandomState(const Epoch& epoch) {
    Epoch::State state = epoch.Old();
    const auto& sizes = epoch.Sizes();
    state.size = sizes[random_() % sizes.size()];
    // A file grows as its pages go out; it is cut in one go.
    const std::int64_t base = sizes.front();
    const std::int64_t sectors = (*std::max_element(sizes.begin(), sizes.end()) - base) / kSectorSize;
    if (sectors > 0 && random_() % 5 == 0) {
      const auto more = static_cast<std::int64_t>(random_() % static_cast<std::uint64_t>(sectors));
      state.size = (base / kSectorSize + 1 + more) * kSectorSize;
    }
    // Few of the new forms, about half, or most of them.
    const std::uint32_t chance = std::array{1U, 5U, 9U}[random_() % 3];
    for (std::size_t i = 0; i < state.forms.size(); ++i) {
      const std::size_t forms = epoch.Sectors()[i].forms.size();
      if (forms > 1 && random_() % 10 < chance) state.forms[i] = 1 + random_() % (forms - 1);
      // The last form is the likeliest in truth.
      if (state.forms[i] > 0 && random_() % 2 == 0) state.forms[i] = forms - 1;
    }
    return state;
  }

  void LookAt(const Epoch& epoch, const StateCheck& check, const Epoch::State& state, std::string_view how) {
    const ByteList bytes = epoch.Build(state);
    const std::string_view key(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!seen_.insert(std::hash<std::string_view>()(key)).second) return;
    std::size_t changed = 0;
    std::size_t missing = 0;
    for (std::size_t i = 0; i < state.forms.size(); ++i) {
      if (state.forms[i] > 0) ++changed;
      if (state.forms[i] + 1 < epoch.Sectors()[i].forms.size()) ++missing;
    }
    Look(check, bytes, -1, std::min(changed, missing), [&] {
      std::ostringstream text;
      text << "(" << how << ", seed " << effort_.seed << ") in stretch " << number_ << " of events " << epoch.Begin()
           << " to " << epoch.End() << ", size " << state.size << " of";
      for (const std::int64_t size : epoch.Sizes()) text << " " << size;
      const bool namesMissing = missing < changed;
      text << (namesMissing ? ", all sectors but" : ", sectors");
      int named = 0;
      for (std::size_t i = 0; i < state.forms.size(); ++i) {
        const bool isNew = state.forms[i] + 1 == epoch.Sectors()[i].forms.size();
        if ((namesMissing ? isNew : state.forms[i] == 0) || ++named > 12) continue;
        text << " " << epoch.Sectors()[i].number;
        if (!isNew && state.forms[i] > 0) text << "(form " << state.forms[i] << ")";
      }
      text << " of " << epoch.Sectors().front().number << ".." << epoch.Sectors().back().number;
      return text.str();
    });
  }

  template <typename Describe>
  void Look(const StateCheck& check, const ByteList& bytes, std::int64_t cut, std::size_t size, Describe describe) {
    ++tally_.states;
    std::set<Loss> met;
    const bool worksOn = tally_.states % static_cast<std::size_t>(effort_.everyWorksOn) == 0;
    check.Run(bytes, cut, worksOn, [&](Loss loss, const std::string& what) {
      // Cells go out before the index: after a crash an old index's Z range may be too narrow for them, and stays so.
      if (loss == Loss::kStaleRange || !met.insert(loss).second) return;
      ReplayTally::Found& found = tally_.found[loss];
      if (found.count++ == 0 || size < found.size) {
        found.size = size;
        found.example = what + " " + describe();
      }
    });
  }

  const DiskRecording& disk_;
  const Truth& truth_;
  ReplayEffort effort_;
  std::mt19937 random_;
  ReplayTally tally_;
  int number_ = 0;
  std::unordered_set<std::size_t> seen_;
};

}  // namespace vak::test
