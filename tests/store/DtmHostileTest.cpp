#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "support/MemoryStream.h"

// Files that lie. Whatever is damaged, the areas that aren't keep their cells: through reading, inserting, clearing,
// the removal of an area, syncing, closing and opening again.
namespace vak::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kSize = 2;
constexpr std::array<int, 3> kIds = {dVAL, iNUM, cOIL};
constexpr std::size_t kHeader = 56 + 4 * kIds.size();
constexpr std::size_t kChunk = 8 + 32 + (8 + 4 * 8) + (8 + 4 * 4) + (8 + 4 * 1);
constexpr std::size_t kAreas = 5;
constexpr std::size_t kIndexAt = kHeader + kAreas * kChunk;

struct Place {
  int row = 0;
  int col = 0;
  auto operator<=>(const Place&) const = default;
};
/// Bottom-left cells of the areas of the file that all tests begin with, in its order.
constexpr std::array<Place, kAreas> kPlaces = {{{0, 0}, {0, 2}, {-2, 4}, {4, -2}, {-4, -4}}};

template <typename T>
void Put(Bytes& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}
std::size_t EntryAt(std::size_t entry) { return kIndexAt + 8 + 32 * entry; }

void Sound(DtmAccess& access, Place cell, double z) {
  EXPECT_TRUE(access.InsertValue(cell.col + 0.5, cell.row + 0.5, z, 0, nullptr, nullptr, 0));
}

/// Five areas, three cells with data in each.
Bytes FiveAreas() {
  auto file = std::make_shared<MemoryFile>();
  DtmFile dtm(new MemoryStream(file), true);
  dtm.SetAreaSize(kSize);
  dtm.ClearBlockIds();
  for (const int id : kIds) dtm.AddBlockId(id);
  EXPECT_TRUE(dtm.Open());
  {
    DtmAccess access(&dtm);
    double z = -10;
    for (const Place& place : kPlaces) {
      Sound(access, place, z--);
      Sound(access, place, z--);
      Sound(access, {place.row + 1, place.col + 1}, z--);
      EXPECT_TRUE(access.SetDoubleValue(place.row, place.col + 1, cOIL, -z, false));
    }
  }
  EXPECT_EQ(dtm.Close(), 0);
  EXPECT_EQ(file->bytes.size(), kIndexAt + 16 + 32 * kAreas);
  return file->bytes;
}

/// All values of an area, as bits; nothing when it can't be read.
std::vector<std::uint64_t> ReadArea(DtmAccess& access, Place place) {
  std::vector<std::uint64_t> values;
  for (const int id : kIds) {
    for (int cell = 0; cell < kSize * kSize; ++cell) {
      double value = 0;
      if (!access.GetDoubleValue(place.row + cell / kSize, place.col + cell % kSize, id, value)) return {};
      values.push_back(std::bit_cast<std::uint64_t>(value));
    }
  }
  return values;
}

using Picture = std::map<Place, std::vector<std::uint64_t>>;

Picture ReadAll(DtmFile& dtm) {
  Picture picture;
  DtmAccess access(&dtm);
  for (const Place& place : kPlaces) picture[place] = ReadArea(access, place);
  return picture;
}

const Picture& Truth() {
  static const Picture truth = [] {
    DtmFile dtm(new MemoryStream(FiveAreas()), false);
    EXPECT_TRUE(dtm.Open());
    return ReadAll(dtm);
  }();
  return truth;
}

/// What became of a damaged file.
struct Outcome {
  bool opened = false;
  DtmOpenedBy by = DtmOpenedBy::kNothing;
  Picture before;      ///< at the first opening
  Picture afterwards;  ///< after work in other areas, and another opening
};

/// Opens, reads everything, inserts in a new area and in `worked`, empties `emptied` so that it leaves the file,
/// closes, opens and reads again.
Outcome Work(const Bytes& bytes, Place worked, Place emptied) {
  Outcome outcome;
  auto file = std::make_shared<MemoryFile>();
  file->bytes = bytes;
  DtmFile dtm(new MemoryStream(file), false);
  outcome.opened = dtm.Open();
  if (!outcome.opened) {
    EXPECT_EQ(file->bytes, bytes) << "a file that doesn't open is left alone";
    return outcome;
  }
  outcome.by = dtm.OpenedBy();
  const bool usual = dtm.AreaSize() == kSize && dtm.CellSize() == 1;
  if (usual) outcome.before = ReadAll(dtm);
  if (dtm.SmallestBody() < 1 << 20) {
    DtmAccess access(&dtm);
    (void)access.InsertValue(100.5, 100.5, -1, 0, nullptr, nullptr, 0);
    (void)access.InsertValue(worked.col + 0.5, worked.row + 0.5, -99, 0, nullptr, nullptr, 0);
    for (int cell = 0; cell < kSize * kSize; ++cell) {
      access.MakeCellEmpty(emptied.row + cell / kSize, emptied.col + cell % kSize);
    }
    access.SetCacheSize(0);
    (void)access.SetDoubleValue(-100, -100, iNUM, 7, false);
  }
  dtm.SyncWrite();
  {
    DtmAccess access(&dtm);
    access.MakeCellEmpty(100, 100);
  }
  dtm.Close();
  EXPECT_TRUE(dtm.Open()) << "what opened opens again";
  if (usual) outcome.afterwards = ReadAll(dtm);
  return outcome;
}

/// The areas `kept` read the same before and after.
void ExpectKept(const Outcome& outcome, std::initializer_list<Place> kept) {
  ASSERT_TRUE(outcome.opened);
  for (const Place& place : kept) {
    EXPECT_EQ(outcome.before.at(place), Truth().at(place)) << "at once, area " << place.row << ' ' << place.col;
    EXPECT_EQ(outcome.afterwards.at(place), Truth().at(place)) << "in the end, area " << place.row << ' ' << place.col;
  }
}

/// Of every area either nothing is read or what it holds; in the end what was to be read at first.
void ExpectNothingForeign(const Outcome& outcome, Place worked, Place emptied) {
  for (const auto& [place, values] : outcome.before) {
    if (values.empty() || place == worked || place == emptied) continue;
    EXPECT_EQ(outcome.afterwards.at(place), values) << "area " << place.row << ' ' << place.col;
  }
}

}  // namespace

// ---- Settings that no model can have

TEST(DtmHostile, SettingsThatNoModelCanHaveDontOpen) {
  struct Case {
    const char* name;
    double cellSize;
    int areaSize;
    bool opens;
  };
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {{"as it is", 1, kSize, true},
                        {"tiny cells", 5e-324, kSize, true},
                        {"cells of 0", 0, kSize, false},
                        {"cells of -0", -0.0, kSize, false},
                        {"negative cells", -1, kSize, false},
                        {"infinite cells", kInfinity, kSize, false},
                        {"no number", kNan, kSize, false},
                        {"areas of 0", 1, 0, false},
                        {"areas of -1", 1, -1, false},
                        {"smallest int", 1, std::numeric_limits<int>::min(), false},
                        {"largest int", 1, std::numeric_limits<int>::max(), false},
                        // 13 bytes a cell, 56 an area: the largest square of cells below 2^31 has sides of 12852.
                        {"largest area that fits 31 bits", 1, 12852, true},
                        {"just beyond 31 bits", 1, 12853, false}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    auto file = std::make_shared<MemoryFile>();
    file->bytes = FiveAreas();
    Put(file->bytes, 28, one.cellSize);
    Put(file->bytes, 44, one.areaSize);
    const Bytes before = file->bytes;
    DtmFile dtm(new MemoryStream(file), false);
    EXPECT_EQ(dtm.Open(), one.opens);
    EXPECT_EQ(file->bytes, before);
  }
}

TEST(DtmHostile, AnEmptyBlockListDoesntOpen) {
  Bytes bytes = FiveAreas();
  Put(bytes, 52, 0);   // the list's length
  Put(bytes, 16, 36);  // and that of the chunk around it
  DtmFile dtm(new MemoryStream(bytes), false);
  EXPECT_FALSE(dtm.Open());
  Put(bytes, 52, 3);  // less than one id
  Put(bytes, 16, 39);
  DtmFile other(new MemoryStream(bytes), false);
  EXPECT_FALSE(other.Open());
}

// ---- Index entries that lie

TEST(DtmHostile, AnIndexEntryThatLiesHarmsItsOwnAreaAlone) {
  const auto at = [](std::size_t area) { return static_cast<std::int64_t>(kHeader + area * kChunk + 8); };
  const auto end = static_cast<std::int64_t>(kIndexAt);
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  struct Case {
    const char* name;
    std::int64_t position;
  };
  const Case cases[] = {{"negative", -1},
                        {"smallest", std::numeric_limits<std::int64_t>::min()},
                        {"largest", kLargest},
                        {"almost largest", kLargest - 7},
                        {"0", 0},
                        {"in the magic", 8},
                        {"in the settings", 20},
                        {"just behind the settings' start", kHeader},
                        {"the first area's header", at(0) - 8},
                        {"the first area", at(0)},
                        {"a byte into the first area", at(0) + 1},
                        {"the first area's cells", at(0) + 40},
                        {"the last area", at(4)},
                        {"between the last areas", at(4) - 20},
                        {"a little too early", at(1) - 1},
                        {"a little too late", at(1) + 1},
                        {"in the index", end + 8},
                        {"at the index", end},
                        {"so that it reaches into the index", end - 20},
                        {"behind the file", end + 100'000},
                        {"beyond 32 bits", std::int64_t{1} << 40}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Bytes bytes = FiveAreas();
    Put(bytes, EntryAt(1) + 8, one.position);
    // The area of the lying entry is neither worked in nor emptied; of the others, each is one or the other once.
    const Outcome first = Work(bytes, kPlaces[0], kPlaces[2]);
    EXPECT_EQ(first.by, DtmOpenedBy::kIndex);
    ExpectKept(first, {kPlaces[3], kPlaces[4]});
    EXPECT_EQ(first.before.at(kPlaces[1]).size(), 0U) << "nothing is read in its place";
    ExpectKept(Work(bytes, kPlaces[4], kPlaces[3]), {kPlaces[0], kPlaces[2]});
    // And itself: no sounding gets in, and the others don't notice.
    ExpectKept(Work(bytes, kPlaces[1], kPlaces[1]), {kPlaces[0], kPlaces[2], kPlaces[3], kPlaces[4]});
  }
}

TEST(DtmHostile, AnIndexEntryWithAFalsePlaceHarmsItsOwnAreaAlone) {
  struct Case {
    const char* name;
    Place place;
  };
  constexpr int kEnd = std::numeric_limits<int>::max();
  const Case cases[] = {{"row off the lattice", {1, 2}},
                        {"column off the lattice", {0, 3}},
                        {"negative row off the lattice", {-1, 2}},
                        {"row too large", {kEnd - 1, 2}},
                        {"row too small", {std::numeric_limits<int>::min(), 2}},
                        {"column too large", {0, kEnd - 1}},
                        {"column too small", {0, std::numeric_limits<int>::min()}},
                        {"largest row", {kEnd, 2}},
                        {"the place of another area", kPlaces[4]},
                        {"the place of the first area", kPlaces[0]},
                        {"a place that has no area", {20, 20}}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Bytes bytes = FiveAreas();
    Put(bytes, EntryAt(1), one.place.row);
    Put(bytes, EntryAt(1) + 4, one.place.col);
    ExpectKept(Work(bytes, kPlaces[0], kPlaces[2]), {kPlaces[3], kPlaces[4]});
    ExpectKept(Work(bytes, kPlaces[4], kPlaces[3]), {kPlaces[0], kPlaces[2]});
    DtmFile dtm(new MemoryStream(bytes), false);
    ASSERT_TRUE(dtm.Open());
    DtmAccess access(&dtm);
    const auto own = Truth().find(one.place);
    EXPECT_EQ(ReadArea(access, one.place), own == Truth().end() ? std::vector<std::uint64_t>() : own->second);
  }
}

TEST(DtmHostile, AnAreaHiddenInTheSettingsIsNeverWrittenTo) {
  // A chunk that nobody knows holds all of an area but the cells of its last block: those are the cell size's tag.
  Bytes bytes = FiveAreas();
  Bytes hidden(8 + 8 + 32 + (8 + 4 * 8) + (8 + 4 * 4) + 8, 0);
  std::copy_n(bytes.begin() + kHeader + kChunk, hidden.size() - 8, hidden.begin() + 8);  // the second area
  Put(hidden, 0, 5);
  Put(hidden, 4, static_cast<std::int32_t>(hidden.size() - 8));
  bytes.insert(bytes.begin() + 20, hidden.begin(), hidden.end());
  Put(bytes, 16, static_cast<std::int32_t>(kHeader - 20 + hidden.size()));
  for (std::size_t entry = 0; entry < kAreas; ++entry) {
    const auto position = static_cast<std::int64_t>(kHeader + hidden.size() + entry * kChunk + 8);
    Put(bytes, hidden.size() + EntryAt(entry) + 8, entry == 1 ? std::int64_t{36} : position);
  }
  const Outcome outcome = Work(bytes, kPlaces[1], kPlaces[1]);
  EXPECT_EQ(outcome.by, DtmOpenedBy::kIndex);
  EXPECT_EQ(outcome.before.at(kPlaces[1]).size(), 0U);
  ExpectKept(outcome, {kPlaces[0], kPlaces[2], kPlaces[3], kPlaces[4]});
}

TEST(DtmHostile, IndexEntriesInAnyOrderAreAsGood) {
  Bytes bytes = FiveAreas();
  for (std::size_t i = 0; i < kAreas / 2; ++i) {
    std::swap_ranges(bytes.begin() + static_cast<std::ptrdiff_t>(EntryAt(i)),
                     bytes.begin() + static_cast<std::ptrdiff_t>(EntryAt(i) + 32),
                     bytes.begin() + static_cast<std::ptrdiff_t>(EntryAt(kAreas - 1 - i)));
  }
  ExpectKept(Work(bytes, kPlaces[0], kPlaces[2]), {kPlaces[1], kPlaces[3], kPlaces[4]});
  ExpectKept(Work(bytes, kPlaces[3], kPlaces[1]), {kPlaces[0], kPlaces[2], kPlaces[4]});
}

TEST(DtmHostile, AnIndexThatBeginsWithinTheSettingsIsNone) {
  // Head and tail agree, and yet what is written next would go over the settings: the chunks are walked instead.
  Bytes bytes = FiveAreas();
  const std::size_t headAt = 20;
  const std::size_t length = bytes.size() - 8 - headAt;
  Put(bytes, headAt, 0x696E3364);  // a chunk of its own in the settings
  Put(bytes, headAt + 4, static_cast<std::int32_t>(length + 1));
  Put(bytes, bytes.size() - 4, static_cast<std::int32_t>(length));
  DtmFile dtm(new MemoryStream(bytes), false);
  EXPECT_FALSE(dtm.Open()) << "the cell size is gone";

  // The same with settings that are still there, in front of it.
  Bytes longer = FiveAreas();
  Bytes junk(24, 0);
  Put(junk, 0, 0x696E3364);
  const std::size_t junkAt = kHeader;
  longer.insert(longer.begin() + static_cast<std::ptrdiff_t>(junkAt), junk.begin(), junk.end());
  Put(longer, 16, static_cast<std::int32_t>(kHeader - 20 + junk.size()));
  Put(longer, junkAt + 4, static_cast<std::int32_t>(16));
  const std::size_t reach = longer.size() - 8 - junkAt;
  Put(longer, junkAt + 4, static_cast<std::int32_t>(reach + 1));
  Put(longer, longer.size() - 4, static_cast<std::int32_t>(reach));
  const Outcome outcome = Work(longer, kPlaces[0], kPlaces[2]);
  EXPECT_EQ(outcome.by, DtmOpenedBy::kWalk);
  ExpectKept(outcome, {kPlaces[1], kPlaces[3], kPlaces[4]});
}

/// The file with an index of `count` entries in place of its own: the true ones, then the last one again and again.
Bytes WithIndexOf(std::size_t count) {
  const Bytes honest = FiveAreas();
  Bytes bytes(honest.begin(), honest.begin() + static_cast<std::ptrdiff_t>(kIndexAt));
  bytes.resize(kIndexAt + 16 + 32 * count);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(bytes.data() + EntryAt(i), honest.data() + EntryAt(std::min(i, kAreas - 1)), 32);
  }
  const auto body = static_cast<std::int32_t>(32 * count + 8);
  Put(bytes, kIndexAt, 0x696E3364);
  Put(bytes, kIndexAt + 4, body + 1);
  Put(bytes, bytes.size() - 8, 0x696E3364);
  Put(bytes, bytes.size() - 4, body);
  return bytes;
}

TEST(DtmHostile, AnIndexOfFarMoreEntriesThanThereIsRoomForIsNone) {
  // Room for the five and a part of a sixth, made up by the settings. Beyond twice that, 1024 more are let pass.
  const std::size_t most = 2 * ((kIndexAt - 12) / kChunk) + 1024;
  const Outcome passes = Work(WithIndexOf(most), kPlaces[0], kPlaces[2]);
  EXPECT_EQ(passes.by, DtmOpenedBy::kIndex);
  ExpectKept(passes, {kPlaces[1], kPlaces[3], kPlaces[4]});
  const Outcome refused = Work(WithIndexOf(most + 1), kPlaces[0], kPlaces[2]);
  EXPECT_EQ(refused.by, DtmOpenedBy::kWalk);
  ExpectKept(refused, {kPlaces[1], kPlaces[3], kPlaces[4]});
}

// ---- Chunks that lie

TEST(DtmHostile, AnAreaThatLiesHarmsItselfAlone) {
  struct Case {
    const char* name;
    std::size_t at;
    std::int32_t value;
  };
  constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
  const Case cases[] = {{"tag", 0, 0x61726562},
                        {"no tag", 0, 0},
                        {"no length", 4, 0},
                        {"negative length", 4, -1},
                        {"largest length", 4, kLargest},
                        {"length over the next area", 4, static_cast<std::int32_t>(2 * kChunk - 8)},
                        {"a little short", 4, static_cast<std::int32_t>(kChunk - 9)},
                        {"a little long", 4, static_cast<std::int32_t>(kChunk - 7)},
                        {"length of attr", 12, kLargest},
                        {"tag of attr", 8, 5},
                        {"row", 24, 1000},
                        {"row of another area", 24, -4},
                        {"column", 36, -1},
                        {"length of a block", 44, kLargest},
                        {"no length of a block", 44, 0},
                        {"tag of a block", 40, 0},
                        {"another block's tag", 40, iNUM}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Bytes bytes = FiveAreas();
    Put(bytes, kHeader + kChunk + one.at, one.value);
    ExpectKept(Work(bytes, kPlaces[0], kPlaces[2]), {kPlaces[3], kPlaces[4]});
    ExpectKept(Work(bytes, kPlaces[4], kPlaces[3]), {kPlaces[0], kPlaces[2]});
    ExpectKept(Work(bytes, kPlaces[1], kPlaces[1]), {kPlaces[0], kPlaces[2], kPlaces[3], kPlaces[4]});
  }
}

// ---- Systematic damage

TEST(DtmHostile, AFileCutAnywhereKeepsTheAreasInFrontOfTheCut) {
  const Bytes whole = FiveAreas();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    SCOPED_TRACE("cut to " + std::to_string(length));
    const Bytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    const Outcome outcome = Work(bytes, kPlaces[0], {});
    ASSERT_EQ(outcome.opened, length >= kHeader);
    if (!outcome.opened) continue;
    EXPECT_EQ(outcome.by, DtmOpenedBy::kWalk);
    const std::size_t complete = std::min(kAreas, (length - kHeader) / kChunk);
    for (std::size_t area = 0; area < kAreas; ++area) {
      const Place place = kPlaces[area];
      EXPECT_EQ(outcome.before.at(place).empty(), area >= complete) << area;
      if (area > 0 && area < complete) ExpectKept(outcome, {place});
    }
    if (testing::Test::HasFailure()) return;
  }
}

TEST(DtmHostile, ADamagedByteHarmsNothingButItsOwnArea) {
  const Bytes whole = FiveAreas();
  int unopened = 0;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int kind : {0, 1, 2}) {
      const auto value = static_cast<std::uint8_t>(kind == 0 ? 0 : kind == 1 ? 0xFF : ~whole[at]);
      if (value == whole[at]) continue;
      SCOPED_TRACE("byte " + std::to_string(at) + " is " + std::to_string(value));
      Bytes bytes = whole;
      bytes[at] = value;
      // The area that the byte belongs to, or none.
      std::size_t own = kAreas;
      if (at >= kHeader && at < kIndexAt) own = (at - kHeader) / kChunk;
      if (at >= EntryAt(0) && at < EntryAt(kAreas)) own = (at - EntryAt(0)) / 32;
      const std::size_t worked = own == 0 ? 1 : 0;
      const std::size_t emptied = own == 2 ? 3 : 2;
      const Outcome outcome = Work(bytes, kPlaces[worked], kPlaces[emptied]);
      if (!outcome.opened) {
        EXPECT_LT(at, kHeader) << "only the settings can keep it from opening";
        ++unopened;
      } else if (outcome.before.empty() || at < kHeader) {
        ExpectNothingForeign(outcome, kPlaces[worked], kPlaces[emptied]);
      } else {
        for (std::size_t area = 0; area < kAreas; ++area) {
          if (area != own && area != worked && area != emptied) ExpectKept(outcome, {kPlaces[area]});
        }
      }
      if (testing::Test::HasFailure()) return;
    }
  }
  EXPECT_GT(unopened, 60);
}

}  // namespace vak::test
