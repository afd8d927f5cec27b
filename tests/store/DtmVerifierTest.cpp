#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmVerifier.h"
#include "vakdtm/store/GridFormat.h"

#include "support/LongForm.h"
#include "support/MemoryStream.h"
#include "support/RandomSeed.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

using Kind = DtmFaultKind;
using Bytes = std::vector<std::uint8_t>;
using Place = std::pair<int, int>;  // row and column of an area's bottom-left cell
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr long long kNow = 1'700'000'000;

// The model that most tests damage: area size 4, dVAL and iNUM, areas at (0, 0), (0, 4), (-4, 8) in this order.
constexpr std::size_t kAreas = 64;   // where the first begins
constexpr std::size_t kWhole = 248;  // bytes of an area's chunk
constexpr std::size_t kSecond = kAreas + kWhole;
constexpr std::size_t kThird = kAreas + 2 * kWhole;
constexpr std::size_t kHead = kAreas + 3 * kWhole;
constexpr std::size_t kEntries = kHead + 8;
constexpr std::size_t kTail = kEntries + 3 * 32;
constexpr std::size_t kSize = kTail + 8;
// In an area's chunk.
constexpr std::size_t kAttr = 8;
constexpr std::size_t kRow = 24;
constexpr std::size_t kCol = 36;
constexpr std::size_t kValHeader = 40;
constexpr std::size_t kValCells = 48;
constexpr std::size_t kNumHeader = 176;

const std::vector<Place> kPlaces = {{0, 0}, {0, 4}, {-4, 8}};

template <typename T>
void Put(Bytes& bytes, std::size_t at, T value) {
  ASSERT_LE(at + sizeof value, bytes.size());
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

template <typename T>
T Get(const Bytes& bytes, std::size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

void Insert(Bytes& bytes, std::size_t at, const Bytes& what) {
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), what.begin(), what.end());
}

void Erase(Bytes& bytes, std::size_t at, std::size_t count) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  bytes.erase(from, from + static_cast<std::ptrdiff_t>(count));
}

Bytes Cut(const Bytes& bytes, std::size_t at, std::size_t count) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  return {from, from + static_cast<std::ptrdiff_t>(count)};
}

Bytes Chunk(std::int32_t tag, std::int32_t length, std::size_t body) {
  Bytes bytes(8 + body, 0x55);
  Put(bytes, 0, tag);
  Put(bytes, 4, length);
  return bytes;
}

Bytes ThreeAreas() {
  const TimeStands clock(kNow);
  TestGrid grid;
  int z = 1;
  for (const Place& place : kPlaces) {
    for (int i = 0; i < 4; ++i, ++z) EXPECT_TRUE(grid.Set(place.first + i, place.second + i, dVAL, -0.1 * z));
    EXPECT_TRUE(grid.Sound(place.second + 3.5, place.first + 0.5, -0.3 * z));
  }
  grid.Close();
  return grid.Bytes();
}

/// A fault as a test looks at it.
struct Seen {
  std::size_t offset;
  Kind kind;
  bool operator==(const Seen&) const = default;
};

void PrintTo(const Seen& seen, std::ostream* out) {
  *out << "{" << seen.offset << ", " << static_cast<int>(seen.kind) << "}";
}

struct Looked {
  std::vector<Seen> seen;
  std::vector<DtmFault> faults;
  DtmVerifyCounts counts;
};

Looked Verify(const Bytes& bytes) {
  const TimeStands clock(kNow + 10);
  MemoryStream stream(bytes);
  Looked looked;
  DtmVerifier verifier(stream);
  verifier.SetFaultSink([&](const DtmFault& fault) {
    looked.seen.push_back({static_cast<std::size_t>(fault.offset), fault.kind});
    looked.faults.push_back(fault);
    EXPECT_FALSE(fault.Text().empty());
  });
  EXPECT_TRUE(verifier.Verify());
  looked.counts = verifier.Counts();
  EXPECT_EQ(stream.File()->counts.writes + stream.File()->counts.setSizes, 0U);
  EXPECT_EQ(stream.File()->bytes, bytes);
  return looked;
}

/// Repairs the bytes. @return nothing when that was refused.
std::optional<DtmRepairReport> Repair(Bytes& bytes, std::function<void(MemoryFile&)> prepare = {}) {
  const TimeStands clock(kNow + 10);
  MemoryStream stream(bytes);
  if (prepare) prepare(*stream.File());
  DtmVerifier verifier(stream);
  DtmRepairReport report;
  const bool done = verifier.Repair(report);
  bytes = stream.File()->bytes;
  return done ? std::optional(report) : std::nullopt;
}

/// Every area's cells, bit for bit, as a model that is opened shows them.
std::map<Place, Bytes> Cells(const Bytes& bytes, DtmOpenedBy* openedBy = nullptr) {
  std::map<Place, Bytes> cells;
  TestGrid grid(bytes);
  if (openedBy) *openedBy = grid.File().OpenedBy();
  for (int i = 0; DtmArea* area = grid.File().GetArea(i); ++i) {
    Bytes& all = cells[{area->BottomLeftRow(), area->BottomLeftCol()}];
    for (int slot = 0; slot < grid.File().NumBlockIds(); ++slot) {
      const BlockHold hold(area->OpenDataBlockAt(slot));
      if (!hold) continue;
      const auto* from = reinterpret_cast<const std::uint8_t*>(hold->CellData());
      all.insert(all.end(), from, from + hold->BlockSize());
      hold->Close();  // the count that OpenDataBlockAt gave
    }
  }
  return cells;
}

/// What an area of the undamaged model looks like in the file.
std::map<Place, Bytes> Chunks(const Bytes& bytes) {
  std::map<Place, Bytes> chunks;
  for (std::size_t at = kAreas; at + kWhole <= bytes.size() && Get<std::int32_t>(bytes, at) == grid::kArea;
       at += kWhole) {
    chunks[{Get<std::int32_t>(bytes, at + kRow), Get<std::int32_t>(bytes, at + kCol)}] = Cut(bytes, at, kWhole);
  }
  return chunks;
}

struct Case {
  std::string name;
  std::function<void(Bytes&)> damage;
  std::vector<Seen> faults;
  std::set<std::size_t> lost = {};  // areas that nothing can bring back, by their place in the file
};

void PutEntryPosition(Bytes& bytes, std::size_t entry, std::int64_t position) {
  Put(bytes, kEntries + 32 * entry + 8, position);
}

Bytes OldIndex(const Bytes& bytes) {
  Bytes index = Chunk(grid::kOldIndex, 24 * 3 + 9, 0);
  for (std::size_t i = 0; i < 3; ++i) {
    const Bytes entry = Cut(bytes, kEntries + 32 * i, 24);
    index.insert(index.end(), entry.begin(), entry.end());
  }
  const Bytes tail = Chunk(grid::kOldIndex, 24 * 3 + 8, 0);
  index.insert(index.end(), tail.begin(), tail.end());
  return index;
}

// ---- What is found, and what a repair makes of it

const std::vector<Case>& MendableCases() {
  using enum DtmFaultKind;
  static const std::vector<Case> kCases = {
      // Chunks
      {"tag 0 for an area, block header gone as well",
       [](Bytes& b) {
         Put(b, kSecond, 0);
         Put(b, kSecond + kValHeader, 0);
       },
       {{kSecond, kTagZero}, {kEntries + 32, kEntryNoArea}},
       {1}},
      {"negative length and no attr",
       [](Bytes& b) {
         Put(b, kSecond + 4, -5);
         Put(b, kSecond + kAttr, 1);
       },
       {{kSecond, kNegativeLength}, {kEntries + 32, kEntryNoArea}},
       {1}},
      {"length beyond the index and no attr",
       [](Bytes& b) {
         Put(b, kSecond + 4, 1 << 30);
         Put(b, kSecond + kAttr, 1);
       },
       {{kSecond, kBeyondEnd}, {kEntries + 32, kEntryNoArea}},
       {1}},
      {"garbage between two areas",
       [](Bytes& b) {
         Insert(b, kSecond, Bytes(13, 0xFF));
         PutEntryPosition(b, 0, 0);  // moved with the bytes behind, so put right below
       },
       {},
       {}},
      {"five bytes before the index", [](Bytes& b) { Insert(b, kHead, Bytes(5, 0xFF)); }, {{kHead, kTrailingBytes}}},
      {"an unknown tag that hides two areas",
       [](Bytes& b) {
         Put(b, kAreas, 0x41424344);
         Put(b, kAreas + 4, static_cast<std::int32_t>(3 * kWhole - 8));
         Put(b, kAreas + kNumHeader, 0);
       },
       {{kAreas, kHiddenArea}, {kEntries, kEntryNoArea}},
       {0}},
      {"an area so long that it holds the next, itself whole",
       [](Bytes& b) { Put(b, kAreas + 4, static_cast<std::int32_t>(2 * kWhole - 8)); },
       {{kAreas, kHiddenArea}}},
      {"an area so long that it holds the next, itself not whole",
       [](Bytes& b) {
         Put(b, kAreas + 4, static_cast<std::int32_t>(2 * kWhole - 8));
         Put(b, kAreas + kNumHeader, 0);
       },
       {{kAreas + kNumHeader, kBlockMissing}, {kAreas, kHiddenArea}},
       {0}},
      {"an index tag in front of an area", [](Bytes& b) { Put(b, kSecond, grid::kIndex); }, {{kSecond, kAreaTag}}},
      {"a whole chunk that is an index in front of the areas",
       [](Bytes& b) { Insert(b, kHead, Chunk(grid::kIndex, 8, 8)); },
       {{kHead, kStrayIndex}}},
      {"five bytes out of an area's cells", [](Bytes& b) { Erase(b, kSecond + kValCells + 7, 5); }, {}, {1}},
      {"three bytes out of an area's last cells, so that the next area begins too early",
       [](Bytes& b) {
         Erase(b, kAreas + kWhole - 9, 3);
         b.resize(kHead - 3);
       },
       {{kAreas, kHiddenArea}, {kHead - 3, kNoIndex}},
       {0}},
      {"three bytes out of an area's header",
       [](Bytes& b) {
         Erase(b, kSecond + 2, 3);
         b.resize(kHead - 3);
       },
       {{kSecond - 3, kAreaTag}, {kHead - 3, kNoIndex}}},
      {"three bytes out of an area's last cells, and a length that covers the next area",
       [](Bytes& b) {
         Erase(b, kAreas + kWhole - 9, 3);
         Put(b, kAreas + 4, static_cast<std::int32_t>(2 * kWhole - 11));
         b.resize(kHead - 3);
       },
       {{kAreas, kHiddenArea}, {kHead - 3, kNoIndex}},
       {0}},
      {"blocks in another order, in a chunk that holds the next area",
       [](Bytes& b) {
         const Bytes num = Cut(b, kSecond + kNumHeader, 72);
         Erase(b, kSecond + kNumHeader, 72);
         Insert(b, kSecond + kValHeader, num);
         Put(b, kSecond + 4, static_cast<std::int32_t>(2 * kWhole - 8));
       },
       {{kThird, kAreaLeftover}, {kSecond + kValHeader, kBlockOrder}, {kSecond, kHiddenArea}}},
      // Areas
      {"a sound area with another tag", [](Bytes& b) { Put(b, kThird, 0x41424344); }, {{kThird, kAreaTag}}},
      {"a sound area with length 0", [](Bytes& b) { Put(b, kThird + 4, 0); }, {{kThird, kAreaLength}}},
      {"a sound area with a negative length", [](Bytes& b) { Put(b, kThird + 4, -1); }, {{kThird, kAreaLength}}},
      {"a sound area with a length beyond the index",
       [](Bytes& b) { Put(b, kThird + 4, 100000); },
       {{kThird, kAreaLength}}},
      {"no attr",
       [](Bytes& b) { Put(b, kSecond + kAttr, 0x41424344); },
       {{kSecond + 8, kAreaAttributes}, {kSecond + 8, kAreaLeftover}},
       {1}},
      {"no row", [](Bytes& b) { Put(b, kSecond + kAttr + 8, 0x41424344); }, {{kSecond + 8, kAreaAttributes}}, {1}},
      {"no column", [](Bytes& b) { Put(b, kSecond + kAttr + 20, 0x41424344); }, {{kSecond + 8, kAreaAttributes}}, {1}},
      {"a row between two areas", [](Bytes& b) { Put(b, kSecond + kRow, 3); }, {{kSecond + 8, kAreaPlace}}, {1}},
      {"a column too far out", [](Bytes& b) { Put(b, kSecond + kCol, 0x7FFFFFFC); }, {{kSecond + 8, kAreaPlace}}, {1}},
      {"two areas for a place, the first named by the index",
       [](Bytes& b) { Put(b, kThird + kRow, 0), Put(b, kThird + kCol, 4); },
       {{kThird, kAreaRepeated}, {kEntries + 64, kEntryWrongPlace}},
       {2}},
      {"two areas for a place, the second named by the index",
       [](Bytes& b) { Put(b, kAreas + kCol, 4); },
       {{kAreas, kAreaNotInIndex}, {kSecond, kAreaRepeated}, {kEntries, kEntryWrongPlace}},
       {0}},
      {"a block id that isn't the file's",
       [](Bytes& b) { Put(b, kSecond + kValHeader, dMIN); },
       {{kSecond + kValHeader, kAreaLeftover}, {kThird, kBlockMissing}},
       {1}},
      {"a block of another size",
       [](Bytes& b) { Put(b, kSecond + kNumHeader + 4, 60); },
       {{kSecond + kNumHeader, kBlockLength}},
       {1}},
      {"a chunk between the blocks",
       [](Bytes& b) {
         Insert(b, kThird + kNumHeader, Chunk(dMIN, 4, 4));
         Put(b, kThird + 4, static_cast<std::int32_t>(kWhole - 8 + 12));
       },
       {{kThird + kNumHeader, kAreaLeftover}}},
      {"bytes behind the last block",
       [](Bytes& b) {
         Insert(b, kHead, Bytes(6, 1));
         Put(b, kThird + 4, static_cast<std::int32_t>(kWhole - 8 + 6));
       },
       {{kHead, kAreaLeftover}}},
      {"blocks in another order",
       [](Bytes& b) {
         const Bytes num = Cut(b, kThird + kNumHeader, 72);
         Erase(b, kThird + kNumHeader, 72);
         Insert(b, kThird + kValHeader, num);
       },
       {{kThird + kValHeader, kBlockOrder}}},
      {"a block once more",
       [](Bytes& b) {
         Insert(b, kHead, Cut(b, kThird + kNumHeader, 72));
         Put(b, kHead + 8, std::uint8_t{0x77});
         Put(b, kThird + 4, static_cast<std::int32_t>(kWhole - 8 + 72));
       },
       {{kHead, kAreaLeftover}}},
      {"column before row",
       [](Bytes& b) {
         const Bytes row = Cut(b, kThird + 16, 12);
         Erase(b, kThird + 16, 12);
         Insert(b, kThird + 28, row);
       },
       {{kThird + 8, kAreaAttributes}}},
      // The index
      {"no index at all", [](Bytes& b) { b.resize(kHead); }, {{kHead, kNoIndex}}},
      {"a tail cut off", [](Bytes& b) { b.resize(kTail + 3); }, {{kHead, kIndexTorn}}},
      {"cut in the last area",
       [](Bytes& b) { b.resize(kThird + 100); },
       {{kThird, kBeyondEnd}, {kThird + 100, kNoIndex}},
       {2}},
      {"a head that isn't tail plus one", [](Bytes& b) { Put(b, kHead + 4, 104); }, {{kHead, kIndexTorn}}},
      {"a head with another tag",
       [](Bytes& b) { Put(b, kHead, 0x41424344); },
       {{kHead, kBeyondEnd}, {kTail, kIndexHead}}},
      {"bytes behind the index", [](Bytes& b) { b.resize(kSize + 4); }, {{kHead, kIndexTorn}}},
      {"an index length that is no whole entry",
       [](Bytes& b) {
         Insert(b, kTail, Bytes(4, 0));
         Put(b, kHead + 4, 3 * 32 + 9 + 4);
         Put(b, b.size() - 4, 3 * 32 + 8 + 4);
       },
       {{kTail, kIndexLength}}},
      {"an entry that names nothing",
       [](Bytes& b) { PutEntryPosition(b, 1, kSecond + 9); },
       {{kSecond, kAreaNotInIndex}, {kEntries + 32, kEntryNoArea}}},
      {"an entry with another row",
       [](Bytes& b) { Put(b, kEntries + 32, 8); },
       {{kSecond, kAreaNotInIndex}, {kEntries + 32, kEntryWrongPlace}}},
      {"an entry that no area can have",
       [](Bytes& b) { Put(b, kEntries + 32, 9); },
       {{kSecond, kAreaNotInIndex}, {kEntries + 32, kEntryPlace}}},
      {"two entries for an area",
       [](Bytes& b) {
         const Bytes first = Cut(b, kEntries, 32);
         std::copy(first.begin(), first.end(), b.begin() + kEntries + 32);
       },
       {{kSecond, kAreaNotInIndex}, {kEntries + 32, kEntryRepeated}}},
      {"entries in another order",
       [](Bytes& b) { std::swap_ranges(b.begin() + kEntries, b.begin() + kEntries + 32, b.begin() + kEntries + 32); },
       {{kEntries + 32, kEntryUnsorted}}},
      {"an index that lacks an area",
       [](Bytes& b) {
         Erase(b, kEntries + 64, 32);
         Put(b, kHead + 4, 2 * 32 + 9);
         Put(b, b.size() - 4, 2 * 32 + 8);
       },
       {{kThird, kAreaNotInIndex}}},
      // Warnings
      {"written before 1970", [](Bytes& b) { Put(b, kEntries + 16, std::int64_t{-1}); }, {{kEntries, kEntryTime}}},
      {"written in the future",
       [](Bytes& b) { Put(b, kEntries + 16, std::int64_t{kNow + 1'000'000}); },
       {{kEntries, kEntryTime}}},
      {"half a Z range", [](Bytes& b) { Put(b, kEntries + 24, ~0U); }, {{kEntries, kEntryRange}}},
      {"a cell above the Z range",
       [](Bytes& b) { Put(b, kSecond + kValCells + 16, 7.5); },
       {{kSecond + kValCells + 16, kCellOutside}},
       {1}},  // lost only in so far as the cell itself isn't what it was
  };
  return kCases;
}

TEST(DtmVerifier, ASoundModelHasNothingToReport) {
  const Bytes bytes = ThreeAreas();
  ASSERT_EQ(bytes.size(), kSize);
  const Looked looked = Verify(bytes);
  EXPECT_THAT(looked.seen, IsEmpty());
  EXPECT_EQ(looked.counts.areas, 3);
}

TEST(DtmVerifier, AModelWithoutAreasHasNothingToReport) {
  TestGrid grid;
  grid.Close();
  const Looked looked = Verify(grid.Bytes());
  EXPECT_THAT(looked.seen, IsEmpty());
  EXPECT_EQ(looked.counts.areas, 0);
}

TEST(DtmVerifier, EachDamageIsFoundWithItsOffset) {
  for (const Case& one : MendableCases()) {
    SCOPED_TRACE(one.name);
    Bytes bytes = ThreeAreas();
    one.damage(bytes);
    const Looked looked = Verify(bytes);
    EXPECT_GT(looked.counts.mendable, 0);
    if (!one.faults.empty()) {
      EXPECT_EQ(looked.seen, one.faults);
    } else {
      EXPECT_GT(looked.counts.faults, 0);
    }
  }
}

TEST(DtmVerifier, AnAreaBehindAGapIsFoundWhereverThePiecesEndInWhichTheGapIsRead) {
  constexpr std::size_t kPiece = std::size_t{1} << 18;
  constexpr std::size_t kMarks = 16;  // bytes by which the body of an area is known
  // The search begins with the bodies of chunks that start one byte into the gap.
  for (std::size_t inPiece = 0; inPiece <= kMarks + 1; ++inPiece) {
    SCOPED_TRACE(inPiece);
    const std::size_t gap = kPiece + 1 - inPiece;
    Bytes bytes = ThreeAreas();
    Insert(bytes, kSecond, Bytes(gap));
    const Looked looked = Verify(bytes);
    ASSERT_FALSE(looked.faults.empty());
    EXPECT_EQ(looked.seen.front(), (Seen{kSecond, Kind::kTagZero}));
    EXPECT_EQ(looked.faults.front().next, static_cast<long long>(kSecond + gap));
    EXPECT_EQ(looked.counts.areas, 3);
  }
}

TEST(DtmVerifier, RepairKeepsEveryAreaThatIsWholeToTheBit) {
  const Bytes sound = ThreeAreas();
  const std::map<Place, Bytes> former = Chunks(sound);
  ASSERT_EQ(former.size(), 3U);
  for (const Case& one : MendableCases()) {
    SCOPED_TRACE(one.name);
    Bytes bytes = sound;
    one.damage(bytes);
    const auto report = Repair(bytes);
    ASSERT_TRUE(report);
    EXPECT_TRUE(report->changed);
    EXPECT_THAT(Verify(bytes).seen, IsEmpty());
    DtmOpenedBy openedBy{};
    const std::map<Place, Bytes> cells = Cells(bytes, &openedBy);
    EXPECT_EQ(openedBy, DtmOpenedBy::kIndex);
    const std::map<Place, Bytes> chunks = Chunks(bytes);
    EXPECT_EQ(static_cast<std::size_t>(report->kept), chunks.size());
    EXPECT_EQ(cells.size(), chunks.size());
    for (std::size_t i = 0; i < kPlaces.size(); ++i) {
      if (one.lost.contains(i)) continue;
      SCOPED_TRACE(i);
      ASSERT_TRUE(chunks.contains(kPlaces[i]));
      EXPECT_EQ(chunks.at(kPlaces[i]), former.at(kPlaces[i]));
      EXPECT_EQ(cells.at(kPlaces[i]).size(), 192U);
    }
  }
}

TEST(DtmVerifier, DamageInTheHeaderIsToldAndNeverRepaired) {
  using enum DtmFaultKind;
  const std::vector<Case> cases = {
      {"magic", [](Bytes& b) { b[3] = 'X'; }, {{0, kMagic}}},
      {"too short for the magic", [](Bytes& b) { b.resize(11); }, {{0, kMagic}}},
      {"nothing", [](Bytes& b) { b.clear(); }, {{0, kMagic}}},
      {"no attr", [](Bytes& b) { Put(b, 12, 0); }, {{12, kSettingMissing}}},
      {"cut in attr", [](Bytes& b) { b.resize(40); }, {{12, kSettingMissing}}},
      {"no cell size", [](Bytes& b) { Put(b, 20, 0x41424344); }, {{20, kSettingMissing}}},
      {"no area size", [](Bytes& b) { Put(b, 36, 0x41424344); }, {{20, kSettingMissing}}},
      {"no block list", [](Bytes& b) { Put(b, 48, 0x41424344); }, {{20, kSettingMissing}}},
      {"cell size 0", [](Bytes& b) { Put(b, 28, 0.0); }, {{20, kSettingUnusable}}},
      {"cell size not a number", [](Bytes& b) { Put(b, 28, std::nan("")); }, {{20, kSettingUnusable}}},
      {"area size 0", [](Bytes& b) { Put(b, 44, 0); }, {{36, kSettingUnusable}}},
      {"areas beyond 31 bits", [](Bytes& b) { Put(b, 44, 1 << 20); }, {{48, kSettingUnusable}}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Bytes bytes = ThreeAreas();
    one.damage(bytes);
    const Looked looked = Verify(bytes);
    EXPECT_EQ(looked.seen, one.faults);
    EXPECT_EQ(looked.counts.faults, 1);
    EXPECT_EQ(looked.counts.mendable, 0);
    const Bytes damaged = bytes;
    EXPECT_FALSE(Repair(bytes));
    EXPECT_EQ(bytes, damaged);
  }
}

TEST(DtmVerifier, AHeaderWithMoreThanItNeedsIsOnlyWarnedOf) {
  Bytes bytes = ThreeAreas();
  // Makes the block list two bytes longer than its ids, and lets something unknown and a rest follow.
  Bytes more = Bytes(2, 0);
  const Bytes chunk = Chunk(0x41424344, 4, 4);
  const Bytes again = Chunk(grid::kAreaSize, 4, 4);
  more.insert(more.end(), chunk.begin(), chunk.end());
  more.insert(more.end(), again.begin(), again.end());
  more.insert(more.end(), 3, 0);
  bytes.resize(kHead);
  Insert(bytes, kAreas, more);
  Put(bytes, 52, 10);
  Put(bytes, 16, static_cast<std::int32_t>(44 + more.size()));
  using enum DtmFaultKind;
  const Looked looked = Verify(bytes);
  EXPECT_EQ(looked.seen, (std::vector<Seen>{{48, kSettingLength},
                                            {66, kUnknownChunk},
                                            {78, kSettingRepeated},
                                            {90, kSettingLeftover},
                                            {bytes.size(), kNoIndex}}));
  EXPECT_EQ(looked.counts.warnings, 4);
  EXPECT_EQ(looked.counts.areas, 3);
}

TEST(DtmVerifier, OddBlockListsAreToldAndTheirAreasCounted) {
  const TimeStands clock(kNow);
  const int odd = MakeBlockId("zODD");
  const int unknown = MakeBlockId("dNEW");
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, odd, dVAL, unknown}});
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1.0));
  grid.Close();
  using enum DtmFaultKind;
  const Looked looked = Verify(grid.Bytes());
  EXPECT_EQ(looked.seen, (std::vector<Seen>{{60, kBlockUnknownLetter}, {64, kBlockListedTwice}, {68, kBlockUnknown}}));
  EXPECT_EQ(looked.counts.warnings, 2);
  EXPECT_EQ(looked.counts.notes, 1);
  EXPECT_EQ(looked.counts.areas, 1);
}

TEST(DtmVerifier, AnUnknownChunkIsAWarningAndStaysWhenNothingElseIsWrong) {
  Bytes bytes = ThreeAreas();
  bytes.resize(kHead);
  Insert(bytes, kSecond, Chunk(0x41424344, 20, 20));
  using enum DtmFaultKind;
  EXPECT_EQ(Verify(bytes).seen, (std::vector<Seen>{{kSecond, kUnknownChunk}, {bytes.size(), kNoIndex}}));
}

TEST(DtmVerifier, AnOldIndexIsANoteAndNoFault) {
  Bytes bytes = ThreeAreas();
  const Bytes index = OldIndex(bytes);
  bytes.resize(kHead);
  bytes.insert(bytes.end(), index.begin(), index.end());
  const Looked looked = Verify(bytes);
  EXPECT_EQ(looked.seen, (std::vector<Seen>{{kHead, Kind::kOldIndex}}));
  EXPECT_EQ(looked.counts.notes, 1);
  EXPECT_EQ(looked.counts.mendable, 0);
}

TEST(DtmVerifier, AFileThatCouldNotBeCutEndsLegallyInFiller) {
  const TimeStands clock(kNow);
  TestGrid grid(ThreeAreas());
  grid.Memory().canShorten = false;
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(grid.Clear(-4 + i, 8 + i));
  }
  ASSERT_TRUE(grid.Clear(-4, 11));
  grid.Close();
  ASSERT_EQ(grid.Bytes().size(), kSize);
  const Looked looked = Verify(grid.Bytes());
  EXPECT_EQ(looked.seen, (std::vector<Seen>{{kThird + 8 + 64 + 8, Kind::kFiller}}));
  EXPECT_EQ(looked.counts.areas, 2);
  EXPECT_EQ(looked.counts.faults, 0);
}

TEST(DtmVerifier, HeightsAtTheEndsOfTheRangeAreNotOutside) {
  const TimeStands clock(kNow);
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dMIN, dVAL, dMAX, iNUM}});
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> depth(-100.0, 100.0);
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(grid.Sound(0.04 * i, 0.5, depth(rng)));
  grid.Close();
  EXPECT_THAT(Verify(grid.Bytes()).seen, IsEmpty());
}

TEST(DtmVerifier, CellsOutsideTheRangeAreCountedAndTheFirstIsNamed) {
  Bytes bytes = ThreeAreas();
  Put(bytes, kSecond + kValCells + 8 * 6, 7.5);
  Put(bytes, kSecond + kValCells + 8 * 9, -80.0);
  const Looked looked = Verify(bytes);
  ASSERT_EQ(looked.faults.size(), 1U);
  const DtmFault& fault = looked.faults.front();
  EXPECT_EQ(fault.Severity(), DtmFaultSeverity::kWarning);
  EXPECT_EQ(fault.row, 1);
  EXPECT_EQ(fault.col, 6);
  EXPECT_EQ(fault.found, 2);
  EXPECT_THAT(fault.Text(), HasSubstr("cell at row 1, column 6: dVAL 7.5 and 1 more"));
}

TEST(DtmVerifier, AHeightThatIsNoNumberOrEmptyIsNotOutside) {
  Bytes bytes = ThreeAreas();
  Put(bytes, kSecond + kValCells, std::nan(""));
  Put(bytes, kSecond + kValCells + 8, ~std::uint64_t{0});
  EXPECT_THAT(Verify(bytes).seen, IsEmpty());
}

// ---- Repairing

TEST(DtmVerifier, RepairOfASoundModelWritesNothing) {
  Bytes bytes = ThreeAreas();
  const Bytes former = bytes;
  std::uint64_t changes = 1;
  MemoryStream stream(bytes);
  DtmVerifier verifier(stream);
  DtmRepairReport report;
  EXPECT_TRUE(verifier.Repair(report));
  changes = stream.File()->counts.writes + stream.File()->counts.setSizes;
  EXPECT_EQ(changes, 0U);
  EXPECT_FALSE(report.changed);
  EXPECT_EQ(report.kept, 3);
  EXPECT_EQ(stream.File()->bytes, former);
}

TEST(DtmVerifier, RepairGivesTheIndexOfAWalkedFileBackToTheBit) {
  const Bytes sound = ThreeAreas();
  Bytes bytes = sound;
  bytes.resize(kHead);
  const auto report = Repair(bytes);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->moved, 0);
  ASSERT_EQ(bytes.size(), sound.size());
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t entry = kEntries + 32 * i;
    EXPECT_EQ(Get<std::int64_t>(bytes, entry + 16), kNow + 10) << "written now, since nothing says when";
    Put(bytes, entry + 16, std::int64_t{kNow});
  }
  EXPECT_EQ(bytes, sound);
}

TEST(DtmVerifier, RepairKeepsTheTimesThatTheIndexGives) {
  Bytes bytes = ThreeAreas();
  for (std::size_t i = 0; i < 3; ++i) Put(bytes, kEntries + 32 * i + 16, static_cast<std::int64_t>(1000 + i));
  Put(bytes, kSecond + kValHeader, 0);
  const auto report = Repair(bytes);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->kept, 2);
  EXPECT_EQ(report->moved, 1);
  ASSERT_EQ(report->lost.size(), 1U);
  EXPECT_EQ(report->lost[0].offset, static_cast<std::int64_t>(kSecond));
  EXPECT_EQ(report->bytesLeftOut, static_cast<std::int64_t>(kWhole));
  const std::size_t entries = kAreas + 2 * kWhole + 8;
  EXPECT_EQ(Get<std::int64_t>(bytes, entries + 16), 1000);
  EXPECT_EQ(Get<std::int64_t>(bytes, entries + 32 + 16), 1002);
  EXPECT_EQ(Get<std::int64_t>(bytes, entries + 32 + 8), static_cast<std::int64_t>(kSecond + 8));
}

TEST(DtmVerifier, RepairSyncsTheAreasBeforeTheIndexAndTheIndexAfterwards) {
  Bytes bytes = ThreeAreas();
  bytes.resize(kHead);
  std::vector<std::int64_t> failing;
  for (std::int64_t change = 0; change < 4; ++change) {
    Bytes copy = bytes;
    if (!Repair(copy, [&](MemoryFile& file) { file.failFrom = change; })) failing.push_back(change);
    if (change == 0) {
      EXPECT_EQ(copy, bytes) << "no index before the areas are safe";
    }
  }
  // Sync, index, end of the file (whose failure the filler bears), sync.
  EXPECT_THAT(failing, ElementsAre(0, 1, 2, 3));
}

TEST(DtmVerifier, ARepairThatCouldNotWriteIsTakenUpByTheNext) {
  const Bytes sound = ThreeAreas();
  const std::map<Place, Bytes> former = Chunks(sound);
  int failures = 0;
  for (std::int64_t change = 0;; ++change) {
    SCOPED_TRACE(change);
    Bytes bytes = sound;
    Insert(bytes, kSecond, Bytes(kWhole, 0xAA));  // room enough for a move not to overwrite what it copies
    const bool done = Repair(bytes, [&](MemoryFile& file) { file.failFrom = change; }).has_value();
    failures += done ? 0 : 1;
    if (!done) {
      ASSERT_TRUE(Repair(bytes));
    }
    ASSERT_EQ(Chunks(bytes), former);
    ASSERT_THAT(Verify(bytes).seen, IsEmpty());
    if (done) break;
  }
  EXPECT_GE(failures, 5);
}

TEST(DtmVerifier, RepairOfAStreamThatCannotBeCutEndsInFiller) {
  Bytes bytes = ThreeAreas();
  Insert(bytes, kSecond, Bytes(100, 0xAA));
  ASSERT_TRUE(Repair(bytes, [](MemoryFile& file) { file.canShorten = false; }));
  const Looked looked = Verify(bytes);
  EXPECT_EQ(looked.seen, (std::vector<Seen>{{kSize, Kind::kFiller}}));
  EXPECT_EQ(looked.counts.areas, 3);
}

TEST(DtmVerifier, AStopBeforeTheFirstChangeLeavesTheFileAlone) {
  Bytes bytes = ThreeAreas();
  Insert(bytes, kSecond, Bytes(100, 0xAA));
  int stopped = 0;
  for (int calls = 0;; ++calls) {
    MemoryStream stream(bytes);
    DtmVerifier verifier(stream);
    int left = calls;
    verifier.SetProgressSink([&](double part) {
      EXPECT_GE(part, 0.0);
      EXPECT_LE(part, 1.0);
      return left-- > 0;
    });
    DtmRepairReport report;
    if (verifier.Repair(report)) break;
    ++stopped;
    EXPECT_EQ(stream.File()->bytes, bytes);
  }
  EXPECT_GE(stopped, 5);
}

TEST(DtmVerifier, AVerificationCanBeStopped) {
  MemoryStream stream(ThreeAreas());
  DtmVerifier verifier(stream);
  verifier.SetProgressSink([](double) { return false; });
  EXPECT_FALSE(verifier.Verify());
}

TEST(DtmVerifier, BytesThatCannotBeReadAreAFaultAndNoLoop) {
  const Bytes bytes = ThreeAreas();
  for (std::uint64_t reads = 0; reads < 40; ++reads) {
    SCOPED_TRACE(reads);
    MemoryStream stream(bytes);
    stream.File()->failReadsFrom = reads;
    DtmVerifier verifier(stream);
    EXPECT_TRUE(verifier.Verify());
    if (stream.File()->counts.reads > reads) {
      EXPECT_GT(verifier.Counts().faults, 0);
    }
    DtmRepairReport report;
    EXPECT_FALSE(verifier.Repair(report) && stream.File()->bytes == bytes && report.changed);
  }
}

// ---- Any damage

struct Range {
  std::size_t from, to;
};

struct RandomModel {
  GridSettings settings;
  Bytes bytes;
  std::size_t areasFrom = 0;
  std::size_t whole = 0;
  std::size_t count = 0;

  Range Chunk(std::size_t area) const { return {areasFrom + area * whole, areasFrom + (area + 1) * whole}; }
};

RandomModel MakeRandomModel(std::mt19937_64& rng) {
  const std::vector<int> all = {dVAL, dMIN, dMAX, iNUM, cOIL, fXMN, tTIM, uFCT};
  RandomModel model;
  model.settings.areaSize = 1 + static_cast<int>(rng() % 6);
  model.settings.blockIds.clear();
  const std::size_t blocks = 1 + rng() % all.size();
  std::vector<int> ids = all;
  std::shuffle(ids.begin(), ids.end(), rng);
  model.settings.blockIds.assign(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(blocks));
  const TimeStands clock(kNow);
  TestGrid grid(model.settings);
  const std::size_t areas = rng() % 9;
  std::set<Place> places;
  while (places.size() < areas) {
    // Never 0, so that zeroed bytes don't happen to be another area's place.
    places.insert({1 + static_cast<int>(rng() % 5), -1 - static_cast<int>(rng() % 5)});
  }
  for (const Place& place : places) {
    for (int cell = 0; cell < 5; ++cell) {
      const int row = place.first * model.settings.areaSize + static_cast<int>(rng() % 6) % model.settings.areaSize;
      const int col = place.second * model.settings.areaSize + static_cast<int>(rng() % 6) % model.settings.areaSize;
      for (const int id : model.settings.blockIds) {
        if (id != uFCT) {
          EXPECT_TRUE(grid.Access().SetDoubleValue(row, col, id, 1.0 + static_cast<double>(rng() % 100),
                                                   id == dVAL || id == dMIN || id == dMAX));
        }
      }
      EXPECT_NE(grid.File().GetArea(row, col, true), nullptr);
    }
  }
  grid.Close();
  model.bytes = grid.Bytes();
  model.areasFrom = static_cast<std::size_t>(grid::kMagicSize + grid::FileAttributesSize(static_cast<int>(blocks)));
  model.whole = static_cast<std::size_t>(model.settings.SmallestBody() + 8);
  model.count = (model.bytes.size() - model.areasFrom) / (model.whole + 32);
  return model;
}

/// Bytes of a damaged file, each knowing whether it is one of the sound file and where it stood there.
struct Traced {
  Bytes bytes;
  std::vector<std::int64_t> origin;  // -1: not of the sound file

  void Set(std::size_t at, std::uint8_t value) {
    if (bytes[at] != value) origin[at] = -1;
    bytes[at] = value;
  }
};

/// Whether all bytes of this stretch of the sound file still stand together somewhere.
bool Survives(const Traced& traced, Range range) {
  const auto first = std::find(traced.origin.begin(), traced.origin.end(), static_cast<std::int64_t>(range.from));
  for (auto at = first; at != traced.origin.end();
       at = std::find(at + 1, traced.origin.end(), static_cast<std::int64_t>(range.from))) {
    std::size_t i = 0;
    while (i < range.to - range.from && at + static_cast<std::ptrdiff_t>(i) != traced.origin.end() &&
           *(at + static_cast<std::ptrdiff_t>(i)) == static_cast<std::int64_t>(range.from + i)) {
      ++i;
    }
    if (i == range.to - range.from) return true;
  }
  return false;
}

std::string Damage(const RandomModel& model, Traced& traced, std::mt19937_64& rng) {
  const std::size_t from = model.areasFrom;
  if (traced.bytes.size() <= from) return "";
  const std::size_t at = from + rng() % (traced.bytes.size() - from);
  const std::size_t count = 1 + rng() % 40;
  // Row and column are left alone: an area that takes another's name is another's damage too.
  const auto isName = [&](std::size_t i) {
    const std::int64_t origin = traced.origin[i];
    if (origin < static_cast<std::int64_t>(from)) return false;
    const std::size_t in = (static_cast<std::size_t>(origin) - from) % model.whole;
    return (in >= 24 && in < 28) || (in >= 36 && in < 40);
  };
  switch (rng() % 6) {
    case 0:
      if (!isName(at)) traced.Set(at, static_cast<std::uint8_t>(rng()));
      return "byte " + std::to_string(at);
    case 1:
      for (std::size_t i = at; i < std::min(at + count, traced.bytes.size()); ++i) {
        if (!isName(i)) traced.Set(i, 0);
      }
      return "zeros " + std::to_string(at) + "+" + std::to_string(count);
    case 2:
      traced.bytes.resize(at);
      traced.origin.resize(at);
      return "cut " + std::to_string(at);
    case 3: {
      Bytes noise(count);
      for (std::uint8_t& byte : noise) byte = static_cast<std::uint8_t>(rng());
      Insert(traced.bytes, at, noise);
      traced.origin.insert(traced.origin.begin() + static_cast<std::ptrdiff_t>(at), count, -1);
      return "insert " + std::to_string(at) + "+" + std::to_string(count);
    }
    case 4: {
      const std::size_t gone = std::min(count, traced.bytes.size() - at);
      Erase(traced.bytes, at, gone);
      traced.origin.erase(traced.origin.begin() + static_cast<std::ptrdiff_t>(at),
                          traced.origin.begin() + static_cast<std::ptrdiff_t>(at + gone));
      return "erase " + std::to_string(at) + "+" + std::to_string(gone);
    }
    default: {  // a header with any tag and length
      for (std::size_t i = at; i < std::min(at + 8, traced.bytes.size()); ++i) {
        if (!isName(i)) traced.Set(i, static_cast<std::uint8_t>(i - at < 5 ? rng() : 0));
      }
      return "header " + std::to_string(at);
    }
  }
}

TEST(DtmVerifier, AnyDamageLeavesEveryUntouchedAreaToTheRepair) {
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 rng(seed);
  int untouched = 0;
  int lost = 0;
  const int runs = LongForm(3000, 100000, 1000);
  for (int run = 0; run < runs; ++run) {
    const RandomModel model = MakeRandomModel(rng);
    Traced traced{model.bytes, {}};
    for (std::size_t i = 0; i < traced.bytes.size(); ++i) traced.origin.push_back(static_cast<std::int64_t>(i));
    std::string story =
        "rerun with --gtest_random_seed=" + std::to_string(seed) + ", run " + std::to_string(run) + "\n";
    for (std::uint64_t n = 1 + rng() % 3; n > 0; --n) story += Damage(model, traced, rng) + "\n";

    const Looked looked = Verify(traced.bytes);
    for (const DtmFault& fault : looked.faults) story += std::to_string(fault.offset) + ": " + fault.Text() + "\n";
    SCOPED_TRACE(story);
    Bytes bytes = traced.bytes;
    const auto report = Repair(bytes);
    ASSERT_TRUE(report);
    const Looked after = Verify(bytes);
    ASSERT_EQ(after.counts.faults, 0) << after.faults.front().offset << " " << after.faults.front().Text();
    ASSERT_EQ(after.counts.warnings, 0) << after.faults.front().offset << " " << after.faults.front().Text();
    ASSERT_EQ(after.counts.areas, report->kept);
    ASSERT_TRUE(report->changed || looked.counts.mendable == 0);
    DtmOpenedBy openedBy{};
    const std::map<Place, Bytes> cells = Cells(bytes, &openedBy);
    ASSERT_EQ(openedBy, DtmOpenedBy::kIndex);
    const std::map<Place, Bytes> former = Cells(model.bytes);
    for (std::size_t i = 0; i < model.count; ++i) {
      if (!Survives(traced, model.Chunk(i))) {
        ++lost;
        continue;
      }
      ++untouched;
      const std::size_t at = model.Chunk(i).from;
      const Place place = {Get<std::int32_t>(model.bytes, at + kRow), Get<std::int32_t>(model.bytes, at + kCol)};
      ASSERT_TRUE(cells.contains(place)) << place.first << " " << place.second;
      ASSERT_EQ(cells.at(place), former.at(place));
    }
  }
  EXPECT_GT(untouched, runs);
  EXPECT_GT(lost, runs / 4);
}

TEST(DtmVerifier, AnyByteSetToAnythingIsBornAndMended) {
  const Bytes sound = ThreeAreas();
  for (std::size_t at = 0; at < sound.size(); ++at) {
    for (const int value : {0, 0xFF, sound[at] ^ 0xFF, sound[at] ^ 1}) {
      SCOPED_TRACE(at);
      Bytes bytes = sound;
      bytes[at] = static_cast<std::uint8_t>(value);
      Verify(bytes);
      const bool done = Repair(bytes).has_value();
      ASSERT_TRUE(done || at < kAreas);
      if (done) {
        ASSERT_EQ(Verify(bytes).counts.faults, 0);
      }
    }
  }
}

TEST(DtmVerifier, AFileCutAnywhereIsBornAndMended) {
  const Bytes sound = ThreeAreas();
  for (std::size_t size = 0; size < sound.size(); ++size) {
    SCOPED_TRACE(size);
    Bytes bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size));
    const Looked looked = Verify(bytes);
    EXPECT_GT(looked.counts.faults, 0);
    ASSERT_EQ(Repair(bytes).has_value(), size >= kAreas);
    if (size < kAreas) continue;
    EXPECT_EQ(Verify(bytes).seen.size(), 0U);
    EXPECT_EQ(Chunks(bytes).size(), std::min<std::size_t>(3, (size - kAreas) / kWhole));
  }
}

}  // namespace
}  // namespace vak::test
