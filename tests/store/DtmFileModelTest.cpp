#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "support/LongForm.h"
#include "support/MemoryStream.h"
#include "support/RandomSeed.h"

// Any order of work on a grid file against a plain map of cells, which does the statistics with formulas of its own and
// reads the closed file with a reader of its own. Values are compared as bits.
namespace vak::test {
namespace {

using Bits = std::uint64_t;

// ---- The plain map

char LetterOf(int id) { return static_cast<char>(static_cast<unsigned>(id) >> 24); }
std::size_t WidthOf(char letter) { return letter == 'd' ? 8 : letter == 'c' ? 1 : 4; }
Bits FillOf(char letter) { return letter == 'd' ? ~Bits{0} : letter == 'f' ? Bits{0xFFFFFFFF} : Bits{0}; }
Bits BitsOf(double value) { return std::bit_cast<Bits>(value); }
double DoubleOf(Bits bits) { return std::bit_cast<double>(bits); }
Bits BitsOfFloat(float value) { return std::bit_cast<std::uint32_t>(value); }
std::int32_t IntOf(Bits bits) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits)); }
Bits BitsOfInt(std::int64_t value) { return static_cast<std::uint32_t>(value); }
constexpr Bits kNone = ~Bits{0};

int AreaIndex(int areaSize, int rowOrCol) {
  return static_cast<int>(std::floor(static_cast<double>(rowOrCol) / areaSize));
}

struct Place {
  int row = 0;
  int col = 0;
  auto operator<=>(const Place&) const = default;
};

/// The values of one area, by place in the block list and cell; all that a model knows about it.
struct PlainArea {
  std::vector<std::vector<Bits>> blocks;
  /// For values that `SetValue` stored without marking their block: what was there before. Which of them a later look
  /// finds depends on when the block was last written, and on what else happens to it.
  std::map<std::pair<std::size_t, std::size_t>, std::vector<Bits>> other;

  /// Whether the area may be left out of the file: no value but those whose block wasn't marked, nor anything before
  /// them.
  bool MayBeLeftOut(const std::vector<int>& ids) const {
    for (std::size_t slot = 0; slot < ids.size(); ++slot) {
      const Bits fill = FillOf(LetterOf(ids[slot]));
      for (std::size_t cell = 0; cell < blocks[slot].size(); ++cell) {
        if (!IsRight(slot, cell, fill)) return false;
      }
    }
    return true;
  }
  bool IsRight(std::size_t slot, std::size_t cell, Bits found) const {
    if (blocks[slot][cell] == found) return true;
    const auto kept = other.find({slot, cell});
    return kept != other.end() && std::find(kept->second.begin(), kept->second.end(), found) != kept->second.end();
  }
};

struct Sounding {
  double x, y, z;
  long long time;
  bool hasTvu, hasThu;
  float tvu, thu;
  int fileIndex;
};

class PlainGrid {
 public:
  double cellSize = 1;
  int areaSize = 1;
  std::vector<int> ids;
  std::map<Place, PlainArea> areas;  // by area row and column

  int Slot(int id) const {
    const auto found = std::find(ids.begin(), ids.end(), id);
    return found == ids.end() ? -1 : static_cast<int>(found - ids.begin());
  }
  Place AreaOf(Place cell) const { return {AreaIndex(areaSize, cell.row), AreaIndex(areaSize, cell.col)}; }
  std::size_t IndexOf(Place cell) const {
    const Place area = AreaOf(cell);
    const int index = (cell.row - area.row * areaSize) * areaSize + (cell.col - area.col * areaSize);
    return static_cast<std::size_t>(index);
  }
  bool IsAllowed(double rowOrCol) const { return std::abs(rowOrCol) <= 2147483647.0 - 2.0 * areaSize; }

  PlainArea& Touch(Place cell) {
    PlainArea& area = areas[AreaOf(cell)];
    if (area.blocks.empty()) {
      const auto cells = static_cast<std::size_t>(areaSize) * static_cast<std::size_t>(areaSize);
      for (const int id : ids) area.blocks.emplace_back(cells, FillOf(LetterOf(id)));
    }
    return area;
  }
  Bits* Value(Place cell, int id) {
    const int slot = Slot(id);
    return slot < 0 ? nullptr : &Touch(cell).blocks[static_cast<std::size_t>(slot)][IndexOf(cell)];
  }
  Bits Get(Place cell, std::size_t slot) const {
    const auto area = areas.find(AreaOf(cell));
    return area == areas.end() ? FillOf(LetterOf(ids[slot])) : area->second.blocks[slot][IndexOf(cell)];
  }

  void Insert(Place cell, const Sounding& s) {
    Touch(cell);
    double count = 0;
    if (Bits* num = Value(cell, iNUM)) {
      count = IntOf(*num) < 0 ? 0 : IntOf(*num);
      *num = BitsOfInt(static_cast<std::int64_t>(count) + 1);
    }
    if (Bits* val = Value(cell, dVAL)) InsertMean(cell, *val, count, s.z);
    InsertExtreme(cell, s, dMIN, fXMN, fYMN, [](double held, double z) { return z < held; });
    InsertExtreme(cell, s, dMAX, fXMX, fYMX, [](double held, double z) { return z > held; });
    if (Bits* tim = Value(cell, tTIM); tim && s.time > IntOf(*tim)) *tim = BitsOfInt(s.time);
    if (s.hasTvu) InsertUncertainty(Value(cell, dTVU), count, s.tvu);
    if (s.hasThu) InsertUncertainty(Value(cell, dTHU), count, s.thu);
    if (Bits* fct = Value(cell, uFCT)) *fct |= FileBit(s.fileIndex);
  }

  /// False, and nothing done, where the real one refuses.
  bool Set(Place cell, const Sounding& s) {
    const bool uncertain = Slot(dTVU) >= 0 || Slot(dTHU) >= 0;
    if (uncertain && Slot(dMAX) < 0) return false;
    Touch(cell);
    Put(cell, iNUM, 1);
    Put(cell, dVAL, BitsOf(s.z));
    Put(cell, dSDV, kNone);
    SetExtreme(cell, s, dMIN, fXMN, fYMN);
    SetExtreme(cell, s, dMAX, fXMX, fYMX);
    Put(cell, tTIM, BitsOfInt(s.time));
    SetUnmarked(cell, dTVU, s.hasTvu ? BitsOf(static_cast<double>(s.tvu)) : kNone);
    SetUnmarked(cell, dTHU, s.hasThu ? BitsOf(static_cast<double>(s.thu)) : kNone);
    Put(cell, uFCT, FileBit(s.fileIndex));
    return true;
  }

  void Put(Place cell, int id, Bits bits) {
    if (Bits* value = Value(cell, id)) *value = bits;
  }

 private:
  static Bits FileBit(int fileIndex) { return Bits{1} << (std::abs(static_cast<long long>(fileIndex)) % 32); }

  void InsertMean(Place cell, Bits& val, double count, double z) {
    if (count == 0 || val == kNone) {
      val = BitsOf(z);
      return;
    }
    const double oldMean = DoubleOf(val);
    const double weighted = count * oldMean;
    const double mean = (weighted + z) / (count + 1);
    val = BitsOf(mean);
    Bits* const sdv = Value(cell, dSDV);
    if (!sdv) return;
    double squares = oldMean * oldMean;
    if (count != 1 && *sdv != kNone) {
      const double spread = DoubleOf(*sdv) * DoubleOf(*sdv) * (count - 1);
      squares = spread + squares * count;
    }
    double rest = squares + z * z;
    rest -= mean * mean * (count + 1);
    *sdv = BitsOf(std::sqrt((rest > 0 ? rest : 0.0) / count));
  }

  float OffsetInCell(double coordinate) const {
    const double centre = (std::floor(coordinate / cellSize) + 0.5) * cellSize;
    return static_cast<float>(coordinate - centre);
  }

  void PutOffsets(Place cell, const Sounding& s, int idX, int idY) {
    if (Slot(idX) < 0 || Slot(idY) < 0) return;
    Put(cell, idX, BitsOfFloat(OffsetInCell(s.x)));
    Put(cell, idY, BitsOfFloat(OffsetInCell(s.y)));
  }

  template <typename Beats>
  void InsertExtreme(Place cell, const Sounding& s, int id, int idX, int idY, Beats beats) {
    Bits* const held = Value(cell, id);
    if (!held || (*held != kNone && !beats(DoubleOf(*held), s.z))) return;
    *held = BitsOf(s.z);
    PutOffsets(cell, s, idX, idY);
  }

  void SetExtreme(Place cell, const Sounding& s, int id, int idX, int idY) {
    if (Slot(id) < 0) return;
    Put(cell, id, kNone);
    PutOffsets(cell, s, idX, idY);
  }

  void SetUnmarked(Place cell, int id, Bits bits) {
    Bits* const value = Value(cell, id);
    if (!value) return;
    Touch(cell).other[{static_cast<std::size_t>(Slot(id)), IndexOf(cell)}].push_back(*value);
    *value = bits;
  }

  static void InsertUncertainty(Bits* value, double count, float added) {
    if (!value) return;
    const bool none = *value == kNone || DoubleOf(*value) == 0;
    const double sum = none ? 0.0 : count * DoubleOf(*value) + static_cast<double>(added);
    *value = BitsOf(none ? static_cast<double>(added) : sum / (count + 1));
  }
};

// ---- A reader of the closed file that shares nothing with the store

template <typename T>
T At(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
  T value{};
  if (offset + sizeof value <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

/// What the operations of a run came to, so that an idle run shows.
struct Tally {
  int soundings = 0, refusals = 0, sets = 0, singles = 0, cellsCleared = 0, blocksCleared = 0, areasCleared = 0,
      areasEmptied = 0, areasGone = 0, syncs = 0, reopensByIndex = 0, reopensByWalk = 0, cacheSizes = 0, copies = 0,
      comparisons = 0, atTheEnds = 0;
};

struct Operation {
  int kind = 0;
  std::uint64_t seed = 0;
};

/// A grid file with the plain grid beside it. Every operation draws all it needs from its own seed, so that leaving
/// others out of a history doesn't change it.
class World {
 public:
  World(std::uint64_t seed, int areaSize, Tally& tally) : tally_(tally) {
    std::mt19937_64 rng(seed);
    grid_.areaSize = areaSize;
    constexpr std::array<double, 4> kCellSizes = {1.0, 0.5, 0.3, 25.0};
    grid_.cellSize = kCellSizes[rng() % kCellSizes.size()];
    grid_.ids = DrawBlocks(rng);
    bytes_->canShorten = rng() % 4 != 0;
    const int size = areaSize;
    const int end = std::numeric_limits<int>::max() - 2 * size;
    seams_ = {0, 0, -1, -1, size - 1, size, -size, -size - 1, 2 * size, size / 2};
    ends_ = {end, end - 1, -end, -end + 1, end - size, -end + size};
    Create();
  }

  std::string Describe() const {
    std::ostringstream out;
    out << "area size " << grid_.areaSize << ", cell size " << grid_.cellSize << ", shortens " << bytes_->canShorten
        << ", blocks";
    for (const int id : grid_.ids) out << ' ' << NameOf(id);
    return out.str();
  }

  static Operation Draw(std::mt19937_64& rng) { return {static_cast<int>(rng() % 100), rng()}; }

  /// @return what went wrong, or nothing.
  std::string Apply(const Operation& operation) {
    failure_.clear();
    story_.str("");
    std::mt19937_64 rng(operation.seed);
    const int kind = operation.kind;
    if (kind < 40) {
      Insert(rng);
    } else if (kind < 47) {
      Set(rng);
    } else if (kind < 59) {
      SetSingle(rng);
    } else if (kind < 68) {
      ClearCell(rng);
    } else if (kind < 73) {
      ClearBlock(rng);
    } else if (kind < 74) {
      ClearArea(rng);
    } else if (kind < 75) {
      EmptyArea(rng);
    } else if (kind < 79) {
      SyncWrite();
    } else if (kind < 81) {
      Reopen(rng, false);
    } else if (kind < 83) {
      Reopen(rng, true);
    } else if (kind < 85) {
      ChangeCache(rng);
    } else if (kind < 88) {
      CopyCursor(rng);
    } else if (kind < 90) {
      CompareAll();
    } else if (kind < 92) {
      InsertNonsense(rng);
    } else {
      Look(rng);
    }
    if (failure_.empty() && file_->HasLostData()) Fail("data were given up");
    if (failure_.empty() && file_->NumAreas() != static_cast<int>(grid_.areas.size())) Fail("number of areas differs");
    return failure_.empty() ? failure_ : failure_ + "\n" + Describe();
  }

  /// What the last operation was.
  std::string Story() const { return story_.str(); }

  std::string Finish() {
    failure_.clear();
    std::mt19937_64 rng(1);
    CompareAll();
    Reopen(rng, false);
    return failure_.empty() ? failure_ : failure_ + "\n" + Describe();
  }

 private:
  static std::string NameOf(int id) {
    std::string name;
    for (int shift = 24; shift >= 0; shift -= 8) name += static_cast<char>(static_cast<unsigned>(id) >> shift);
    return name;
  }

  static std::vector<int> DrawBlocks(std::mt19937_64& rng) {
    std::vector<int> ids = {dVAL, iNUM, dSDV, tTIM, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX, dTVU, dTHU, uFCT};
    std::shuffle(ids.begin(), ids.end(), rng);
    switch (rng() % 4) {
      case 0:
        break;  // all of them, in any order
      case 1:
        ids = {dVAL, iNUM, dSDV, dMIN, dMAX, tTIM, fXMN, fYMN, fXMX, fYMX};
        break;
      default:
        ids.resize(1 + rng() % ids.size());
    }
    // Of every letter, some that the table knows and some that nobody does.
    const std::array<int, 11> more = {cOIL,
                                      fBKS,
                                      iPRI,
                                      iLNE,
                                      fDUR,
                                      MakeBlockId("cXYZ"),
                                      MakeBlockId("dXYZ"),
                                      MakeBlockId("fXYZ"),
                                      MakeBlockId("iXYZ"),
                                      MakeBlockId("tXYZ"),
                                      MakeBlockId("uXYZ")};
    for (const int id : more) {
      if (rng() % 5 != 0) continue;
      const auto at = static_cast<std::ptrdiff_t>(rng() % (ids.size() + 1));
      ids.insert(ids.begin() + at, id);
    }
    return ids;
  }

  void Fail(const std::string& what) {
    if (failure_.empty()) failure_ = what;
  }

  void Create() {
    file_ = std::make_unique<DtmFile>(new MemoryStream(bytes_), true);
    bool done = file_->SetCellSize(grid_.cellSize) && file_->SetAreaSize(grid_.areaSize) && file_->ClearBlockIds();
    for (const int id : grid_.ids) done = file_->AddBlockId(id) && done;
    if (!done || !file_->Open()) Fail("could not be created");
    cursors_.push_back(std::make_unique<DtmAccess>(file_.get()));
  }

  // ---- Drawing

  int DrawSeam(std::mt19937_64& rng) {
    if (rng() % 16 == 0) {
      ++tally_.atTheEnds;
      return ends_[rng() % ends_.size()];
    }
    if (rng() % 4 != 0) return seams_[rng() % seams_.size()];
    return static_cast<int>(rng() % static_cast<std::uint64_t>(3 * grid_.areaSize)) - grid_.areaSize;
  }
  Place DrawCell(std::mt19937_64& rng) {
    const int row = DrawSeam(rng);
    return {row, DrawSeam(rng)};
  }
  DtmAccess& DrawCursor(std::mt19937_64& rng) { return *cursors_[rng() % cursors_.size()]; }
  const Place* DrawArea(std::mt19937_64& rng) {
    if (grid_.areas.empty()) return nullptr;
    auto area = grid_.areas.begin();
    std::advance(area, static_cast<std::ptrdiff_t>(rng() % grid_.areas.size()));
    return &area->first;
  }

  Sounding DrawSounding(std::mt19937_64& rng) {
    const Place cell = DrawCell(rng);
    const auto fraction = [&] { return static_cast<double>(rng() % 1000) / 1000; };
    Sounding s{};
    s.x = (cell.col + fraction()) * grid_.cellSize;
    s.y = (cell.row + fraction()) * grid_.cellSize;
    s.z = -20 + static_cast<double>(rng() % 40000) / 1000;
    if (rng() % 50 == 0) s.z = 0;
    s.time = static_cast<long long>(rng() % 2000) + 1'700'000'000;
    if (rng() % 20 == 0) s.time = static_cast<long long>(rng() % 5) * 2'000'000'000 - 4'000'000'000;
    s.hasTvu = rng() % 3 != 0;
    s.hasThu = rng() % 3 != 0;
    s.tvu = static_cast<float>(rng() % 100) / 64;
    s.thu = static_cast<float>(rng() % 100) / 32;
    s.fileIndex = static_cast<int>(rng() % 80) - 40;
    story_ << " x " << s.x << " y " << s.y << " z " << s.z << " time " << s.time << " tvu " << s.hasTvu << ' ' << s.tvu
           << " thu " << s.hasThu << ' ' << s.thu << " file " << s.fileIndex;
    return s;
  }

  /// The cell of a sounding. @return false when it isn't allowed.
  bool CellOf(const Sounding& s, Place& cell) const {
    const double row = std::floor(s.y / grid_.cellSize);
    const double col = std::floor(s.x / grid_.cellSize);
    if (!grid_.IsAllowed(row) || !grid_.IsAllowed(col)) return false;
    cell = {static_cast<int>(row), static_cast<int>(col)};
    return true;
  }

  // ---- Operations

  /// To be called before a change that marks this block: what a look finds now is what will last.
  void Settle(DtmAccess& cursor, Place cell, int id) {
    const int slot = grid_.Slot(id);
    const auto found = grid_.areas.find(grid_.AreaOf(cell));
    if (slot < 0 || found == grid_.areas.end()) return;
    PlainArea& area = found->second;
    for (auto one = area.other.begin(); one != area.other.end();) {
      if (one->first.first != static_cast<std::size_t>(slot)) {
        ++one;
        continue;
      }
      const std::size_t index = one->first.second;
      const int row = found->first.row * grid_.areaSize + static_cast<int>(index) / grid_.areaSize;
      const int col = found->first.col * grid_.areaSize + static_cast<int>(index) % grid_.areaSize;
      double value = 0;
      if (!cursor.GetDoubleValue(row, col, id, value)) Fail("a block can't be read");
      const Bits bits = BitsOf(value);
      if (!area.IsRight(static_cast<std::size_t>(slot), index, bits)) Fail("neither the value set nor the one stored");
      area.blocks[static_cast<std::size_t>(slot)][index] = bits;
      one = area.other.erase(one);
    }
  }

  void Insert(std::mt19937_64& rng) {
    story_ << "insert";
    DtmAccess& cursor = DrawCursor(rng);
    const Sounding s = DrawSounding(rng);
    Place cell;
    const bool allowed = CellOf(s, cell);
    if (allowed && s.hasTvu) Settle(cursor, cell, dTVU);
    if (allowed && s.hasThu) Settle(cursor, cell, dTHU);
    const bool done = cursor.InsertValue(s.x, s.y, s.z, s.time, s.hasTvu ? &s.tvu : nullptr,
                                         s.hasThu ? &s.thu : nullptr, s.fileIndex);
    if (done != allowed) return Fail("the answer of InsertValue differs");
    if (!allowed) {
      ++tally_.refusals;
      return;
    }
    grid_.Insert(cell, s);
    ++tally_.soundings;
    Compare(cursor, cell);
  }

  void Set(std::mt19937_64& rng) {
    story_ << "set value";
    DtmAccess& cursor = DrawCursor(rng);
    const Sounding s = DrawSounding(rng);
    Place cell;
    const bool allowed = CellOf(s, cell);
    const bool done =
        cursor.SetValue(s.x, s.y, s.z, s.time, s.hasTvu ? &s.tvu : nullptr, s.hasThu ? &s.thu : nullptr, s.fileIndex);
    const bool expected = allowed && grid_.Set(cell, s);
    if (done != expected) return Fail("the answer of SetValue differs");
    ++(done ? tally_.sets : tally_.refusals);
    if (done) Compare(cursor, cell);
  }

  void SetSingle(std::mt19937_64& rng) {
    DtmAccess& cursor = DrawCursor(rng);
    const Place cell = DrawCell(rng);
    const bool unknown = rng() % 30 == 0;
    const int id = unknown ? MakeBlockId("dNOT") : grid_.ids[rng() % grid_.ids.size()];
    const char letter = LetterOf(id);
    double value = static_cast<double>(rng() % 200'000) / 100 - 1000;
    if (letter == 'c') value = static_cast<double>(rng() % 256);
    if (letter == 'd' && rng() % 20 == 0) value = -0.0;
    story_ << "set " << NameOf(id) << ' ' << cell.row << ' ' << cell.col << " to " << value;
    const bool expected = letter != 'u' && !unknown;
    if (expected) Settle(cursor, cell, id);
    const bool done = cursor.SetDoubleValue(cell.row, cell.col, id, value, id == dVAL || rng() % 2 == 0);
    if (done != expected) return Fail("the answer of SetDoubleValue differs");
    if (letter != 'u') grid_.Touch(cell);  // the area comes into being also for a block that it doesn't have
    if (!done) {
      ++tally_.refusals;
      return;
    }
    Bits bits = BitsOf(value);
    if (letter == 'f') bits = BitsOfFloat(static_cast<float>(value));
    if (letter == 'c' || letter == 'i' || letter == 't') bits = BitsOfInt(static_cast<std::int64_t>(value));
    grid_.Put(cell, id, bits);
    ++tally_.singles;
    Compare(cursor, cell);
  }

  void ClearCell(std::mt19937_64& rng) {
    DtmAccess& cursor = DrawCursor(rng);
    const Place cell = DrawCell(rng);
    story_ << "clear " << cell.row << ' ' << cell.col;
    ClearCell(cursor, cell);
    Compare(cursor, cell);
  }

  void ClearCell(DtmAccess& cursor, Place cell) {
    Settle(cursor, cell, dTVU);
    Settle(cursor, cell, dTHU);
    if (!cursor.MakeCellEmpty(cell.row, cell.col)) Fail("MakeCellEmpty answers false");
    if (!grid_.areas.contains(grid_.AreaOf(cell))) return;
    for (const int id : grid_.ids) grid_.Put(cell, id, FillOf(LetterOf(id)));
    ++tally_.cellsCleared;
  }

  void ClearBlock(std::mt19937_64& rng) {
    DtmAccess& cursor = DrawCursor(rng);
    const Place cell = DrawCell(rng);
    const int id = grid_.ids[rng() % grid_.ids.size()];
    story_ << "clear " << NameOf(id) << ' ' << cell.row << ' ' << cell.col;
    Settle(cursor, cell, id);
    if (!cursor.ClearCellData(cell.row, cell.col, id)) Fail("ClearCellData answers false");
    if (!grid_.areas.contains(grid_.AreaOf(cell))) return;
    grid_.Put(cell, id, FillOf(LetterOf(id)));
    ++tally_.blocksCleared;
    Compare(cursor, cell);
  }

  /// Every cell by itself, and then elsewhere: the area has to leave the file with the next sync.
  void ClearArea(std::mt19937_64& rng) {
    const Place* const place = DrawArea(rng);
    if (!place || grid_.areaSize > 32) return;
    DtmAccess& cursor = DrawCursor(rng);
    story_ << "clear area " << place->row << ' ' << place->col;
    const int size = grid_.areaSize;
    const Place area = *place;
    const Place corner{area.row * size, area.col * size};
    for (int i = 0; i < size * size && failure_.empty(); ++i) {
      const Place cell{corner.row + i / size, corner.col + i % size};
      if (grid_.IsAllowed(cell.row) && grid_.IsAllowed(cell.col)) ClearCell(cursor, cell);
    }
    double unused = 0;
    cursor.GetDoubleValue(area == Place{0, 0} ? size : 0, 0, dVAL, unused);
    if (!failure_.empty()) return;
    if (!file_->SyncWrite()) return Fail("SyncWrite answers false");
    ++tally_.areasCleared;
    const DtmArea* const shell = FindArea(area);
    if (!shell || shell->IsWritten()) return Fail("an area without data is still in the file");
    ++tally_.areasGone;
  }

  void EmptyArea(std::mt19937_64& rng) {
    const Place* const place = DrawArea(rng);
    if (!place) return;
    story_ << "empty area " << place->row << ' ' << place->col;
    DtmArea* const area = FindArea(*place);
    if (!area) return Fail("an area isn't there");
    area->MakeEmpty();
    PlainArea& plain = grid_.areas[*place];
    plain.other.clear();
    for (std::size_t slot = 0; slot < grid_.ids.size(); ++slot) {
      std::fill(plain.blocks[slot].begin(), plain.blocks[slot].end(), FillOf(LetterOf(grid_.ids[slot])));
    }
    ++tally_.areasEmptied;
  }

  DtmArea* FindArea(Place place) {
    for (int i = 0; DtmArea* area = file_->GetArea(i); ++i) {
      if (area->BottomLeftRow() == place.row * grid_.areaSize && area->BottomLeftCol() == place.col * grid_.areaSize) {
        return area;
      }
    }
    return nullptr;
  }

  void SyncWrite() {
    story_ << "sync";
    if (!file_->SyncWrite()) Fail("SyncWrite answers false");
    ++tally_.syncs;
  }

  void ChangeCache(std::mt19937_64& rng) {
    constexpr std::array<std::uint64_t, 5> kSizes = {0, 1, 2, 9, 100};
    const std::uint64_t size = kSizes[rng() % kSizes.size()];
    story_ << "cache of " << size;
    DrawCursor(rng).SetCacheSize(size);
    ++tally_.cacheSizes;
  }

  void CopyCursor(std::mt19937_64& rng) {
    const std::size_t from = rng() % cursors_.size();
    const std::size_t to = rng() % 4;
    if (to >= cursors_.size()) {
      story_ << "copy cursor " << from;
      cursors_.push_back(std::make_unique<DtmAccess>(*cursors_[from]));
    } else if (to == from && cursors_.size() > 1) {
      story_ << "drop cursor " << to;
      cursors_.erase(cursors_.begin() + static_cast<std::ptrdiff_t>(to));
    } else {
      story_ << "assign cursor " << from << " to " << to;
      *cursors_[to] = *cursors_[from];
    }
    ++tally_.copies;
  }

  void InsertNonsense(std::mt19937_64& rng) {
    story_ << "nonsense";
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const double beyond = (2147483648.0 - 2 * grid_.areaSize + 1) * grid_.cellSize;
    const std::array<std::array<double, 3>, 7> kNonsense = {{{NAN, 0, 0},
                                                             {0, kInfinity, 0},
                                                             {0, 0, NAN},
                                                             {0, 0, -kInfinity},
                                                             {beyond, 0, 0},
                                                             {0, -beyond, 0},
                                                             {1e300, 0, 0}}};
    const auto& [x, y, z] = kNonsense[rng() % kNonsense.size()];
    DtmAccess& cursor = DrawCursor(rng);
    if (cursor.InsertValue(x, y, z, 0, nullptr, nullptr, 0)) Fail("InsertValue takes nonsense");
    if (cursor.SetValue(x, y, z, 0, nullptr, nullptr, 0)) Fail("SetValue takes nonsense");
    ++tally_.refusals;
  }

  // ---- Closing and opening

  void Reopen(std::mt19937_64& rng, bool byWalk) {
    story_ << (byWalk ? "reopen by walk" : "reopen");
    std::map<Place, std::array<float, 2>> ranges;
    for (const auto& [place, area] : grid_.areas) {
      float lo = 0;
      float hi = 0;
      DtmArea* const real = FindArea(place);
      if (real && real->GetMinMaxZ(lo, hi)) ranges[place] = {lo, hi};
    }
    cursors_.clear();
    const bool another = rng() % 2 == 0;
    if (file_->Close() != 0) return Fail("Close leaves an open count");
    CompareBytes();
    if (!failure_.empty()) return;
    if (byWalk) DamageTail(rng);
    if (another) file_ = std::make_unique<DtmFile>(new MemoryStream(bytes_), false);
    if (!file_->Open()) return Fail("can't be opened again");
    const bool walked = file_->OpenedBy() == DtmOpenedBy::kWalk;
    if (walked != (byWalk || !HasTail())) Fail("opened the other way");
    // A few bytes that could have become an index head are nothing that a walk knows.
    const std::size_t left = bytes_->bytes.size() - endOfAreas_;
    const long long stopped = walked && left > 0 && left < 8 ? static_cast<long long>(endOfAreas_) : -1;
    if (file_->WalkStoppedAt() != stopped) Fail("the walk stopped elsewhere");
    ++(walked ? tally_.reopensByWalk : tally_.reopensByIndex);
    cursors_.push_back(std::make_unique<DtmAccess>(file_.get()));
    for (const auto& [place, area] : grid_.areas) {
      const DtmArea* const real = FindArea(place);
      if (!real) return Fail("an area is gone");
      float lo = 0;
      float hi = 0;
      const bool valid = real->GetMinMaxZ(lo, hi);
      const auto range = ranges.find(place);
      const bool same = range != ranges.end() && range->second == std::array<float, 2>{lo, hi};
      if (valid && (walked || !same)) Fail("a Z range came from nowhere");
      if (!valid && !walked && range != ranges.end()) Fail("a Z range is lost");
    }
    CompareAll();
  }

  bool HasTail() const {
    const std::size_t size = bytes_->bytes.size();
    return At<std::int32_t>(bytes_->bytes, size - 8) == 0x696E3364;
  }

  /// From the index on nothing matters to a walk.
  void DamageTail(std::mt19937_64& rng) {
    std::vector<std::uint8_t>& bytes = bytes_->bytes;
    if (rng() % 2 == 0) {
      bytes.resize(endOfAreas_ + rng() % (endOfIndex_ - endOfAreas_));
    } else {
      std::fill(bytes.end() - 8, bytes.end(), std::uint8_t{0});
    }
  }

  // ---- Comparing

  /// What a cursor gives for a cell, against the plain grid.
  void Compare(DtmAccess& cursor, Place cell) {
    const auto area = grid_.areas.find(grid_.AreaOf(cell));
    for (std::size_t slot = 0; slot < grid_.ids.size(); ++slot) {
      double value = 0;
      const bool readable = cursor.GetDoubleValue(cell.row, cell.col, grid_.ids[slot], value);
      if (readable != (area != grid_.areas.end())) return Fail("a block is there, or not, by mistake");
      if (!readable) {
        if (!IsEmptyValue(value)) Fail("a cell that isn't there has a value");
        continue;
      }
      const Bits bits = grid_.Get(cell, slot);
      if (BitsOf(value) == Shown(slot, bits)) continue;
      // Only a `d` value can be one of several, and it is shown as it is stored.
      if (area->second.IsRight(slot, grid_.IndexOf(cell), BitsOf(value))) continue;
      std::ostringstream out;
      out.precision(17);
      out << "cell " << cell.row << ' ' << cell.col << ' ' << NameOf(grid_.ids[slot]) << " is " << value << ", not "
          << DoubleOf(Shown(slot, bits));
      return Fail(out.str());
    }
  }

  /// The bits of the double that a cell's bits are read as.
  Bits Shown(std::size_t slot, Bits bits) const {
    const char letter = LetterOf(grid_.ids[slot]);
    if (bits == FillOf(letter)) return kNone;
    switch (letter) {
      case 'd':
        return bits;
      case 'f':
        return BitsOf(static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits))));
      case 'c':
        return BitsOf(static_cast<double>(bits & 0xFF));
      case 'u':
        return BitsOf(grid_.ids[slot] == uFCT ? static_cast<double>(std::popcount(bits)) : static_cast<double>(bits));
      default:
        return BitsOf(static_cast<double>(IntOf(bits)));
    }
  }

  void Look(std::mt19937_64& rng) {
    const Place cell = DrawCell(rng);
    story_ << "look at " << cell.row << ' ' << cell.col;
    Compare(DrawCursor(rng), cell);
  }

  static Bits RawAt(const std::byte* cells, std::size_t width, std::size_t cell) {
    Bits bits = 0;
    std::memcpy(&bits, cells + cell * width, width);
    return bits;
  }

  /// Every cell of every block, as it lies in memory.
  void CompareAll() {
    ++tally_.comparisons;
    for (const auto& [place, plain] : grid_.areas) {
      DtmArea* const area = FindArea(place);
      if (!area) return Fail("an area isn't there");
      for (std::size_t slot = 0; slot < grid_.ids.size(); ++slot) {
        DtmDataBlock* const block = area->OpenDataBlock(grid_.ids[slot]);
        if (!block) return Fail("a block can't be opened");
        CompareBlock(place, plain, slot, block->CellData());
        block->Close();
      }
    }
  }

  void CompareBlock(Place place, const PlainArea& plain, std::size_t slot, const std::byte* cells) {
    const std::size_t width = WidthOf(LetterOf(grid_.ids[slot]));
    for (std::size_t cell = 0; cell < plain.blocks[slot].size(); ++cell) {
      const Bits found = RawAt(cells, width, cell);
      if (plain.IsRight(slot, cell, found)) continue;
      std::ostringstream out;
      out << "area " << place.row << ' ' << place.col << ' ' << NameOf(grid_.ids[slot]) << " cell " << cell << " holds "
          << std::hex << found << ", not " << plain.blocks[slot][cell];
      return Fail(out.str());
    }
  }

  /// The closed file, byte for byte: settings, areas back to back, index. Settles what may be one or the other.
  void CompareBytes() {
    const std::vector<std::uint8_t>& bytes = bytes_->bytes;
    const std::size_t header = 56 + 4 * grid_.ids.size();
    std::size_t body = 32;
    const auto cells = static_cast<std::size_t>(grid_.areaSize) * static_cast<std::size_t>(grid_.areaSize);
    for (const int id : grid_.ids) body += 8 + cells * WidthOf(LetterOf(id));
    std::map<Place, PlainArea> inFile;
    std::size_t at = header;
    for (; At<std::uint32_t>(bytes, at) == 0x61726561; at += 8 + body) {
      if (At<std::uint32_t>(bytes, at + 4) != body) return Fail("an area's length is wrong");
      const Place place{At<std::int32_t>(bytes, at + 24) / grid_.areaSize,
                        At<std::int32_t>(bytes, at + 36) / grid_.areaSize};
      const auto plain = grid_.areas.find(place);
      if (plain == grid_.areas.end()) return Fail("the file has an area that isn't there");
      if (!CompareArea(bytes, at + 40, place, plain->second)) return;
      if (!inFile.try_emplace(place, std::move(plain->second)).second) return Fail("the file has an area twice");
      grid_.areas.erase(plain);
    }
    endOfAreas_ = at;
    for (const auto& [place, plain] : grid_.areas) {
      if (!plain.MayBeLeftOut(grid_.ids)) return Fail("the file lacks an area that has data");
    }
    grid_.areas = std::move(inFile);
    CompareIndex(bytes, header, 8 + body);
  }

  bool CompareArea(const std::vector<std::uint8_t>& bytes, std::size_t at, Place place, PlainArea& plain) {
    for (std::size_t slot = 0; slot < grid_.ids.size(); ++slot) {
      const std::size_t width = WidthOf(LetterOf(grid_.ids[slot]));
      const std::size_t size = width * plain.blocks[slot].size();
      if (At<std::int32_t>(bytes, at) != grid_.ids[slot] || At<std::uint32_t>(bytes, at + 4) != size ||
          at + 8 + size > bytes.size()) {
        Fail("a block's header is wrong");
        return false;
      }
      const auto* const cells = reinterpret_cast<const std::byte*>(bytes.data() + at + 8);
      CompareBlock(place, plain, slot, cells);
      for (auto& [where, unused] : plain.other) {
        if (where.first == slot) plain.blocks[slot][where.second] = RawAt(cells, width, where.second);
      }
      at += 8 + size;
    }
    plain.other.clear();
    return failure_.empty();
  }

  void CompareIndex(const std::vector<std::uint8_t>& bytes, std::size_t header, std::size_t chunk) {
    const std::size_t count = (endOfAreas_ - header) / chunk;
    if (At<std::uint32_t>(bytes, endOfAreas_) != 0x696E3364 ||
        At<std::uint32_t>(bytes, endOfAreas_ + 4) != 32 * count + 9) {
      return Fail("the index's head is wrong");
    }
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t entry = endOfAreas_ + 8 + 32 * i;
      const std::size_t area = header + i * chunk;
      if (At<std::uint64_t>(bytes, entry + 8) != area + 8 ||
          At<std::int32_t>(bytes, entry) != At<std::int32_t>(bytes, area + 24) ||
          At<std::int32_t>(bytes, entry + 4) != At<std::int32_t>(bytes, area + 36)) {
        return Fail("an index entry is wrong");
      }
    }
    const std::size_t tail = endOfAreas_ + 8 + 32 * count;
    if (At<std::uint32_t>(bytes, tail) != 0x696E3364 || At<std::uint32_t>(bytes, tail + 4) != 32 * count + 8) {
      return Fail("the index's tail is wrong");
    }
    endOfIndex_ = tail + 8;
    if (bytes_->canShorten && bytes.size() != endOfIndex_) return Fail("the file doesn't end with its index");
  }

  Tally& tally_;
  PlainGrid grid_;
  std::shared_ptr<MemoryFile> bytes_ = std::make_shared<MemoryFile>();
  std::unique_ptr<DtmFile> file_;
  std::vector<std::unique_ptr<DtmAccess>> cursors_;  // go before the file
  std::vector<int> seams_;
  std::vector<int> ends_;
  std::size_t endOfAreas_ = 0;  // in the file when it was last closed
  std::size_t endOfIndex_ = 0;
  std::string failure_;
  std::ostringstream story_;
};

struct Setting {
  std::uint64_t seed = 0;
  int areaSize = 1;
};

/// @return what went wrong, or nothing. @param story  gets what the operations were.
std::string Run(const Setting& setting, const std::vector<Operation>& operations, Tally& tally, std::string* story) {
  World world(setting.seed, setting.areaSize, tally);
  for (std::size_t i = 0; i < operations.size(); ++i) {
    const std::string failure = world.Apply(operations[i]);
    if (story) *story += world.Story() + "\n";
    if (!failure.empty()) return failure;
  }
  return world.Finish();
}

/// Leaves out as many operations as can be while the run still fails.
std::vector<Operation> CutDown(const Setting& setting, std::vector<Operation> operations) {
  Tally unused;
  int runs = 0;
  for (std::size_t piece = operations.size() / 2; piece > 0; piece /= 2) {
    for (std::size_t at = 0; at < operations.size() && runs < 2000;) {
      std::vector<Operation> fewer = operations;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(piece, operations.size() - at)));
      ++runs;
      if (Run(setting, fewer, unused, nullptr).empty()) {
        at += piece;
      } else {
        operations = std::move(fewer);
      }
    }
  }
  return operations;
}

/// Runs a history; when it fails, says what is left of it after cutting down.
void Work(const Setting& setting, int count, Tally& tally) {
  std::mt19937_64 rng(setting.seed);
  std::vector<Operation> operations(static_cast<std::size_t>(count));
  for (Operation& operation : operations) operation = World::Draw(rng);
  if (Run(setting, operations, tally, nullptr).empty()) return;
  std::string story;
  const std::string failure = Run(setting, CutDown(setting, operations), tally, &story);
  FAIL() << failure << "\nhistory:\n" << story;
}

}  // namespace

TEST(DtmFileModel, AnyOrderOfWorkAgreesWithAMapOfCells) {
  const std::uint64_t seed = RandomSeed();
  constexpr std::array<int, 8> kAreaSizes = {1, 2, 3, 4, 7, 16, 64, 100};
  Tally tally;
  const int rounds = LongForm(3, 40, 1);
  int operations = 0;
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < kAreaSizes.size() + 1; ++i) {
      const std::uint64_t own = seed * 1'000'003 + static_cast<std::uint64_t>(round) * 100 + i;
      const int areaSize = i < kAreaSizes.size() ? kAreaSizes[i] : static_cast<int>(1 + own * 7919 % 100);
      const int count = areaSize > 20 ? 300 : 1200;
      SCOPED_TRACE("area size " + std::to_string(areaSize) + ", round " + std::to_string(round) +
                   ", rerun with --gtest_random_seed=" + std::to_string(seed));
      Work({own, areaSize}, count, tally);
      if (HasFatalFailure()) return;
      operations += count;
    }
  }
  // The run did what it is for.
  EXPECT_GE(operations, 4'500);
  EXPECT_GT(tally.soundings, operations / 4);
  EXPECT_GT(tally.refusals, operations / 100);
  EXPECT_GT(tally.sets, operations / 50);
  EXPECT_GT(tally.singles, operations / 20);
  EXPECT_GT(tally.cellsCleared, operations / 50);
  EXPECT_GT(tally.blocksCleared, operations / 50);
  EXPECT_GT(tally.areasCleared, operations / 500);
  EXPECT_EQ(tally.areasGone, tally.areasCleared);
  EXPECT_GT(tally.areasEmptied, operations / 500);
  EXPECT_GT(tally.syncs, operations / 50);
  EXPECT_GT(tally.reopensByIndex, operations / 100);
  EXPECT_GT(tally.reopensByWalk, operations / 100);
  EXPECT_GT(tally.cacheSizes, operations / 100);
  EXPECT_GT(tally.copies, operations / 100);
  EXPECT_GT(tally.comparisons, operations / 50);
  EXPECT_GT(tally.atTheEnds, operations / 50);
}

}  // namespace vak::test
