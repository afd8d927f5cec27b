// What is on the disk when the power goes, or the process is killed, at any moment of the work on a model.
#include <cstddef>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "vakdtm/store/GridFormat.h"

#include "crash/CrashReplay.h"
#include "crash/Survey.h"
#include "support/LongForm.h"

namespace vak::test {
namespace {

struct Scenario {
  const char* name;
  std::function<void(Survey&)> work;
};

// The scenarios are for six areas or so; small ones have many, so that the index takes more than two sectors.
const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> scenarios = {
      {"Insertion into existing areas",
       [](Survey& survey) {
         survey.PutAll(0, 3);
         survey.Sync();
         survey.PutAll(0, 3, 2);
         survey.Sync();
         survey.Access().SetCacheSize(0);
         survey.PutAll(0, 3, 5);
         survey.Put(1);
         survey.Sync();
         survey.Close();
       }},
      {"The same second",
       [](Survey& survey) {
         survey.PutAll(0, 2);
         survey.Sync();
         survey.Put(1, 3);
         survey.SyncInTheSameSecond();
         survey.Put(1, 2);
         survey.SyncInTheSameSecond();
         survey.Put(0);
         survey.SyncInTheSameSecond();
       }},
      {"New areas",
       [](Survey& survey) {
         survey.PutAll(0, 2);
         survey.Sync();
         survey.PutAll(2, 4);
         survey.Put(0, 3);
         survey.Sync();
         survey.Put(4, 4);
         survey.Reopen();
         survey.Put(5, 2);
         survey.Sync();
         survey.Close();
       }},
      {"Many areas",
       [](Survey& survey) {
         survey.PutAll(0, 40);
         survey.Sync();
         survey.PutAll(0, 40, 3);
         survey.Sync();
         survey.Put(40);
         survey.Put(7, 2);
         survey.Sync();
         survey.PutAll(41, 46);
         survey.Sync();
         survey.EmptyAll({3, 20});
         survey.Sync();
         survey.Empty(45);
         survey.Put(50);
         survey.Sync();
         survey.Close();
       }},
      {"One emptied area",
       [](Survey& survey) {
         survey.PutAll(0, 5);
         survey.Sync();
         survey.Empty(1);
         survey.Sync();
         survey.Put(4, 3);
         survey.Close();
       }},
      {"The first of two emptied",
       [](Survey& survey) {
         survey.PutAll(0, 2);
         survey.Sync();
         survey.Empty(0);
         survey.Sync();
         survey.Put(0);
         survey.Sync();
       }},
      {"Several emptied in one pass",
       [](Survey& survey) {
         survey.PutAll(0, 7);
         survey.Sync();
         survey.EmptyAll({0, 2, 3});
         survey.Sync();
         survey.Put(2, 2);
         survey.Put(5, 2);
         survey.Sync();
       }},
      {"The last one emptied",
       [](Survey& survey) {
         survey.PutAll(0, 4);
         survey.Sync();
         survey.Empty(3);
         survey.Sync();
         survey.Empty(2);
         survey.Close();
       }},
      {"The last one and another emptied",
       [](Survey& survey) {
         survey.PutAll(0, 6);
         survey.Sync();
         survey.EmptyAll({1, 4, 5});
         survey.Sync();
         survey.Close();
       }},
      {"All emptied",
       [](Survey& survey) {
         survey.PutAll(0, 3);
         survey.Sync();
         survey.EmptyAll({1, 0, 2});
         survey.Sync();
         survey.Put(1);
         survey.Sync();
       }},
      {"Emptied, changed and new in one pass",
       [](Survey& survey) {
         survey.PutAll(0, 5);
         survey.Sync();
         survey.Empty(1);
         survey.Put(4, 2);
         survey.Put(6);
         survey.Put(0, 3);
         survey.Sync();
         survey.Empty(0);
         survey.Sync();
         survey.Put(0, 2);
         survey.Put(7, 2);
         survey.Put(4, 3);
         survey.Sync();
       }},
      {"As many new as emptied",
       [](Survey& survey) {
         survey.PutAll(0, 5);
         survey.Sync();
         survey.EmptyAll({1, 2});
         survey.Sync();
         survey.Put(1);
         survey.Put(8);
         survey.Empty(0);
         survey.Put(9, 2);
         survey.Sync();
       }},
      {"Emptied at the close",
       [](Survey& survey) {
         survey.PutAll(0, 5);
         survey.Reopen();
         survey.Empty(2);
         survey.Put(4, 2);
         survey.Close();
       }},
      {"Reopened by walk",
       [](Survey& survey) {
         survey.PutAll(0, 4);
         survey.ReopenByWalk();
         survey.Put(1, 2);
         survey.Sync();
         survey.ReopenByWalk();
         survey.Put(4);
         survey.Sync();
         survey.ReopenByWalk();
         survey.Empty(0);
         survey.Sync();
         survey.Close();
       }},
  };
  return scenarios;
}

struct NamedShape {
  const char* name;
  GridShape shape;
};

const std::vector<NamedShape>& Shapes() {
  static const std::vector<NamedShape> shapes = {
      {"even", {16, {dVAL, iNUM}, true}},
      {"odd", {16, {dVAL}, true}},
      {"three", {8, {dVAL, iNUM, fXMN}, true}},
      {"small", {2, {dVAL, tTIM}, true}},
      {"no heights", {8, {iNUM, tTIM}, true}},
      {"even, no cutting", {16, {dVAL, iNUM}, false}},
      {"small and odd, no cutting", {4, {dVAL}, false}},
  };
  return shapes;
}

/// Runs every scenario: in the long form on every shape, else on some of them in turn.
template <typename Visit>
void ForEachSurvey(int shapesInShort, Visit visit) {
  const std::size_t count = Shapes().size();
  const auto used = static_cast<std::size_t>(LongForm(shapesInShort, static_cast<int>(count)));
  for (std::size_t i = 0; i < Scenarios().size(); ++i) {
    for (std::size_t k = 0; k < used; ++k) {
      const NamedShape& shape = Shapes()[(i + 2 * k) % count];
      SCOPED_TRACE(std::string(Scenarios()[i].name) + ", " + shape.name);
      Survey survey(shape.shape);
      Scenarios()[i].work(survey);
      visit(survey);
    }
  }
}

void ExpectNothingLost(const ReplayTally& tally, std::size_t& states) {
  states += tally.states;
  EXPECT_TRUE(tally.found.empty()) << tally.Text();
}

void TellStates(std::size_t states) {
  ::testing::Test::RecordProperty("states", static_cast<int>(states));
  std::printf("%zu states\n", states);
}

ReplayEffort Effort() {
  return {.random = LongForm(16, 400, 8),
          .sizes = LongForm(2, 8),
          .sectors = LongForm(8, 1000, 4),
          .everyWorksOn = LongForm(16, 2, 32),
          .byteCuts = LongForm(4, 200, 2),
          .everyUnsynced = LongForm(8, 1, 16),
          .seed = 20};
}

TEST(DtmPowerCut, EveryCellHoldsWhatWasOnTheDiskOrALaterValue) {
  std::size_t states = 0;
  ForEachSurvey(2, [&](const Survey& survey) {
    ExpectNothingLost(CrashReplay(survey.Disk(), survey.GetTruth(), Effort()).CutPower(), states);
  });
  TellStates(states);
}

// Crash upon crash: the work that goes on with what the first one left is cut off as well.
TEST(DtmPowerCut, WhatTheFirstCutLeftIsKeptThroughTheSecond) {
  std::size_t states = 0;
  ForEachSurvey(1, [&](const Survey& survey) {
    ReplayEffort effort = Effort();
    for (const auto& left : CrashReplay(survey.Disk(), survey.GetTruth(), effort).TakeStates(1)) {
      Survey second(survey.GetTruth().Shape(), left.bytes);
      if (!second.TakeOver(left.allowed, survey.LastMoment())) continue;  // torn cells are for the other tests
      second.Put(1, 3);
      second.Put(60, 2);
      second.Sync();
      second.Empty(0);
      second.Put(2);
      second.Put(60);
      second.Sync();
      second.Close();
      effort.seed += 1;
      effort.random = LongForm(4, 40, 2);
      effort.sectors = LongForm(4, 40, 2);
      ExpectNothingLost(CrashReplay(second.Disk(), second.GetTruth(), effort).CutPower(), states);
    }
  });
  TellStates(states);
}

/// What a sync puts on the disk, told from what was written last before it; empty when that was nothing of the model's.
std::string KindOf(const DiskRecording& disk, std::size_t sync) {
  std::size_t at = sync;
  while (at > 0 && disk.events[at - 1].kind == DiskEvent::kSize) --at;
  if (at == 0 || disk.events[at - 1].kind == DiskEvent::kSync) return at < sync ? "a cut" : "";
  const DiskEvent& last = disk.events[at - 1];
  if (at < sync) return "the index's tail";
  const auto* const bytes = reinterpret_cast<const std::byte*>(last.bytes.data());
  if (last.bytes.size() == 4) {
    return grid::Load<std::int32_t>(bytes) == grid::kArea ? "tags of moved areas" : "tags of holes";
  }
  if (last.bytes.size() < 4) return "";  // a spoiled index
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  if (last.bytes.size() == 8 && header.tag == 0 && header.length == 0) {
    const DiskEvent& before = disk.events[at < 2 ? 0 : at - 2];
    return before.kind == DiskEvent::kWrite && before.at + static_cast<std::int64_t>(before.bytes.size()) == last.at
               ? "the index's entries"
               : "a dropped index";
  }
  if (grid::IsIndexTag(header.tag)) return last.bytes.size() == 8 ? "the index's tail" : "the index in its place";
  if (header.tag == 0) return last.bytes.size() == 8 ? "an end moved back" : "room for areas";
  if (last.bytes.size() == grid::kAreaPrefixSize) return "moved areas";
  if (at == 1) return "the settings";
  // What follows tells for what the cells had to be there.
  if (sync + 1 >= disk.events.size() || disk.events[sync + 1].kind != DiskEvent::kWrite) return "cells";
  const ByteList& next = disk.events[sync + 1].bytes;
  const bool isIndex =
      next.size() > 8 && grid::IsIndexTag(grid::LoadHeader(reinterpret_cast<const std::byte*>(next.data())).tag);
  return isIndex ? "cells before an index in its place" : "cells";
}

// Proves the other tests: each kind of sync, left out, leads to a loss that they see.
TEST(DtmPowerCut, NoKindOfSyncCanBeLeftOut) {
  struct Tried {
    int syncs = 0;
    int noticed = 0;
    std::string loss;
  };
  std::map<std::string, Tried> kinds;
  // These two cost nothing and protect nothing that was promised: a model that was never written out may be lost whole,
  // and an index that names the same places may be newer than the cells.
  const std::set<std::string> spare{"the settings", "cells before an index in its place"};
  const ReplayEffort effort{.random = 16, .everyWorksOn = 4, .seed = 20};  // enough to see a loss, which is all
  const auto leaveOut = [&](const Survey& survey) {
    const DiskRecording& disk = survey.Disk();
    if (!CrashReplay(disk, survey.GetTruth(), effort).CutPower().found.empty()) return;  // the other test says so
    for (std::size_t i = 0; i < disk.events.size(); ++i) {
      if (disk.events[i].kind != DiskEvent::kSync) continue;
      const std::string kind = KindOf(disk, i);
      if (kind.empty()) continue;
      Tried& tried = kinds[kind];
      if (tried.noticed >= LongForm(1, 10) || (spare.contains(kind) && tried.syncs >= LongForm(2, 20))) continue;
      ++tried.syncs;
      const ReplayTally tally = CrashReplay(disk, survey.GetTruth(), effort).CutPower({i});
      if (tally.found.empty()) continue;
      if (tried.noticed++ == 0) tried.loss = NameOf(tally.found.begin()->first);
    }
  };
  ForEachSurvey(LongForm(2, 2, 1), leaveOut);
  {
    // Cells alone, the index staying as it was.
    Survey survey({8, {iNUM, tTIM}, true});
    survey.PutAll(0, 2);
    survey.Sync();
    survey.Put(1, 3);
    survey.SyncInTheSameSecond();
    survey.Put(0, 2);
    survey.SyncInTheSameSecond();
    leaveOut(survey);
  }
  for (const auto& [kind, tried] : kinds) {
    std::printf("%s: %d of %d left out are noticed, first by: %s\n", kind.c_str(), tried.noticed, tried.syncs,
                tried.loss.c_str());
    EXPECT_TRUE(tried.noticed > 0 || spare.contains(kind)) << kind;
  }
}

TEST(DtmKilledProcess, EveryCellHoldsWhatWasWrittenOutOrALaterValue) {
  std::size_t states = 0;
  ForEachSurvey(2, [&](const Survey& survey) {
    ExpectNothingLost(CrashReplay(survey.Disk(), survey.GetTruth(), Effort()).Kill(), states);
  });
  TellStates(states);
}

}  // namespace
}  // namespace vak::test
