#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmLinearRectProcessor.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/render/DrawModel.h"
#include "vakdtm/render/DtmDrawProcessor.h"
#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CoordinateSystem.h"

#include "render/ReferenceDrawing.h"
#include "support/LongForm.h"
#include "support/RecordingDevice.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

using Place = PlainModel::Place;

/// The same number for the same cell and seed.
unsigned Hash(unsigned seed, int row, int col) {
  unsigned hash = seed * 2654435761U + static_cast<unsigned>(row) * 40503U + static_cast<unsigned>(col) * 9973U;
  hash ^= hash >> 15;
  hash *= 2246822519U;
  return hash ^ hash >> 13;
}

/// How marks behave in a run.
struct MarkRules {
  unsigned seed = 0;
  int marked = 50;   ///< per cent of cells
  bool init = true;  ///< what `Init` answers
  bool fini = true;  ///< and `Fini`
  int stopAt = -1;   ///< the call of a cell at which the drawing is stopped; -1: none
};

/// Marks cells by rules, and prints all calls onto the device, so that the order of everything can be seen there.
class RuledMarks final : public DtmProcessor {
 public:
  RuledMarks(const MarkRules& rules, CDC& device, std::function<void()> stop)
      : rules_(rules), device_(device), stop_(std::move(stop)) {}

  bool Init(DtmAccess& /*access*/) override {
    cells_ = 0;
    device_.TextOut(0, 0, L"marks begin");
    return rules_.init;
  }
  bool Fini() override {
    device_.TextOut(0, 0, L"marks end");
    return rules_.fini;
  }
  bool ProcessArea(int row, int col, double& weight) override {
    device_.TextOut(col, row, L"marks of area " + std::to_wstring(weight));
    weight = Weight(Hash(rules_.seed + 1, row, col), weight);
    return Hash(rules_.seed + 2, row, col) % 4 != 0;
  }
  bool ProcessCell(int row, int col, double& weight) override {
    if (cells_++ == rules_.stopAt) stop_();
    device_.TextOut(col, row, L"mark of cell " + std::to_wstring(weight));
    weight = Weight(Hash(rules_.seed, row, col), weight);
    return Hash(rules_.seed + 3, row, col) % 4 != 0;
  }

 private:
  double Weight(unsigned hash, double weight) const {
    if (static_cast<int>(hash % 100) < rules_.marked) return hash % 3 == 0 ? weight : 1e-300;
    const double none[] = {0.0, -0.0, -1.0, PlainModel::Empty()};
    return none[hash / 100 % 4];
  }

  MarkRules rules_;
  CDC& device_;
  std::function<void()> stop_;
  int cells_ = 0;
};

/// How a subclass reads cells.
enum class Reading { kPlain, kOfSubclass };

/// As a subclass might: with a value in hand and without, where there is none in the model too.
/// @param found   what the block says of the cell, with `value`.
/// @param height  reads the cell's height.
template <typename Height>
bool ReadOdd(int row, int col, bool found, double& value, Height height) {
  switch (Hash(77, row, col) % 7) {
    case 0:
      return false;  // with a value, if there is one: nothing to compare it with
    case 1:
      value = PlainModel::Empty();
      return false;
    case 2:
      value = 1.25;
      return false;
    case 3:
      return height(value);
    case 4:
      value = -0.75;
      return true;
    case 5:
      value = PlainModel::Empty();
      return true;
    default:
      return found;
  }
}

/// A subclass that supplies its own values.
class OddDrawing final : public DtmDrawProcessor {
 public:
  using DtmDrawProcessor::SetNoValueColor;
  using DtmDrawProcessor::SetShowNoDesign;

  void SetReading(Reading reading) { reading_ = reading; }

 protected:
  bool GetCellValue(int row, int col, double& value) override {
    EXPECT_TRUE(std::bit_cast<std::uint64_t>(value) == ~std::uint64_t{0}) << "a value from somewhere else";
    const bool found = DtmDrawProcessor::GetCellValue(row, col, value);
    if (reading_ == Reading::kPlain) return found;
    return ReadOdd(row, col, found, value, [&](double& height) { return GetCellValueZ(row, col, height); });
  }

 private:
  Reading reading_ = Reading::kPlain;
};

/// Shows every call to both, and compares what they answer and what they do to their devices.
class Comparison final : public DtmProcessor {
 public:
  Comparison(DtmProcessor& drawing, const RecordingDevice& drawn, ReferenceDrawing& reference,
             const RecordingDevice& expected)
      : drawing_(drawing), drawn_(drawn), reference_(reference), expected_(expected) {}

  bool Init(DtmAccess& access) override {
    const bool answer = drawing_.Init(access);
    Same(answer, reference_.Init(access), "Init", 0, 0);
    return answer && !failed_;
  }
  bool Fini() override {
    const bool answer = drawing_.Fini();
    Same(answer, reference_.Fini(), "Fini", 0, 0);
    return answer;
  }
  bool ProcessArea(int row, int col, double& weight) override {
    double other = weight;
    const bool answer = drawing_.ProcessArea(row, col, weight);
    Same(answer, reference_.ProcessArea(row, col, other), "area", row, col);
    SameWeight(weight, other, "area", row, col);
    return answer;
  }
  bool ProcessCell(int row, int col, double& weight) override {
    double other = weight;
    const bool answer = drawing_.ProcessCell(row, col, weight);
    Same(answer, reference_.ProcessCell(row, col, other), "cell", row, col);
    SameWeight(weight, other, "cell", row, col);
    return answer && !failed_;
  }

  std::size_t NumCompared() const { return compared_; }

 private:
  void Same(bool answer, bool expected, const char* what, int row, int col) {
    if (failed_) return;
    const std::vector<std::string>& drawn = drawn_.Lines();
    const std::vector<std::string>& wanted = expected_.Lines();
    const std::size_t most = std::max(drawn.size(), wanted.size());
    for (; compared_ < most && !failed_; ++compared_) {
      const std::string one = compared_ < drawn.size() ? drawn[compared_] : "nothing";
      const std::string other = compared_ < wanted.size() ? wanted[compared_] : "nothing";
      failed_ = one != other;
      EXPECT_EQ(one, other) << what << ' ' << row << ' ' << col;
    }
    failed_ = failed_ || answer != expected || drawn_.GetBkColor() != expected_.GetBkColor();
    EXPECT_EQ(answer, expected) << what << ' ' << row << ' ' << col;
    EXPECT_EQ(drawn_.GetBkColor(), expected_.GetBkColor()) << what << ' ' << row << ' ' << col;
  }
  void SameWeight(double weight, double expected, const char* what, int row, int col) {
    if (failed_) return;
    failed_ = std::bit_cast<std::uint64_t>(weight) != std::bit_cast<std::uint64_t>(expected);
    EXPECT_FALSE(failed_) << "weight of " << what << ' ' << row << ' ' << col << ": " << weight << ", not " << expected;
  }

  DtmProcessor& drawing_;
  const RecordingDevice& drawn_;
  ReferenceDrawing& reference_;
  const RecordingDevice& expected_;
  std::size_t compared_ = 0;
  bool failed_ = false;
};

/// A filter is installed for a scope.
class FilteredColors {
 public:
  explicit FilteredColors(ColorControl::Filter filter) { ColorControl::Instance().SetFilter(std::move(filter)); }
  ~FilteredColors() { ColorControl::Instance().SetFilter({}); }
  FilteredColors(const FilteredColors&) = delete;
  FilteredColors& operator=(const FilteredColors&) = delete;
};

constexpr int kUnknownBlock = 0x645A5A5A;  // "dZZZ"

/// Random models, settings and views, each drawn by the library and by the reference.
class DrawingPropertyTest : public testing::Test {
 protected:
  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }
  double PickReal(double lowest, double highest) {
    return std::uniform_real_distribution<double>(lowest, highest)(random_);
  }
  bool Chance(double part) { return PickReal(0, 1) < part; }
  template <typename T>
  T PickOf(const std::vector<T>& list) {
    return list[static_cast<std::size_t>(Pick(0, static_cast<int>(list.size()) - 1))];
  }
  Color PickColor() { return Chance(0.1) ? 0xFFFFFF : static_cast<Color>(Pick(0, 0xFFFFFF)); }

  void MakeModel() {
    model_ = PlainModel();
    model_.cellSize = PickOf<double>({1.0, 0.5, 0.25, 2.0, 0.1, 0.3, 3.0});
    model_.areaSize = PickOf<int>({8, 8, 8, 16});
    ids_.clear();
    if (Chance(0.9)) ids_.push_back(dVAL);
    for (const int id : {iNUM, tTIM, dMIN, dSDV, fBKS, dMAX, iPRI, cOIL, kUnknownBlock}) {
      if (Chance(id == tTIM || id == dMIN || id == iNUM ? 0.6 : 0.2)) ids_.push_back(id);
    }
    if (ids_.empty()) ids_.push_back(dSDV);
    grid_ = std::make_unique<TestGrid>(
        GridSettings{.cellSize = model_.cellSize, .areaSize = model_.areaSize, .blockIds = ids_});
    const int most = model_.areaSize == 8 ? 2 : 1;
    for (int row = -most; row < most; ++row) {
      for (int col = -most; col < most; ++col) {
        if (Chance(0.35)) AddArea(row * model_.areaSize, col * model_.areaSize);
      }
    }
    if (Chance(0.3)) {
      const Place place(Pick(-3, 3) * model_.areaSize, Pick(-3, 3) * model_.areaSize);
      ASSERT_NE(grid_->Access().GetArea(place.first, place.second, true), nullptr);  // an area that may be empty
    }
    grid_->Leave();
  }

  void AddArea(int bottom, int left) {
    const double holes = PickOf<double>({0.0, 0.1, 0.5, 0.95});
    const bool emptied = Chance(0.1);
    const bool smooth = Chance(0.5);
    for (int row = bottom; row < bottom + model_.areaSize; ++row) {
      for (int col = left; col < left + model_.areaSize; ++col) {
        if (Chance(holes)) continue;
        for (const int id : ids_) {
          if (Chance(0.05)) continue;
          const double value = PickValue(id, row, col, smooth);
          ASSERT_TRUE(grid_->Set(row, col, id, value));
          if (!emptied) model_.blocks[id][{row, col}] = value;
          if (!emptied) model_.areas.insert({bottom, left});
        }
        if (emptied) {
          ASSERT_TRUE(grid_->Clear(row, col));
        }
      }
    }
  }

  /// A value that the kind of block holds exactly.
  double PickValue(int id, int row, int col, bool smooth) {
    const double height = smooth ? 3 * std::sin(row * 0.4) * std::cos(col * 0.3) : PickReal(-3, 3);
    switch (static_cast<char>(id >> 24)) {
      case 't':
        return static_cast<double>(kMidnight + Pick(-8, 3) * 43200 + Pick(-2, 2));
      case 'i':
      case 'c':
        return Pick(1, 9);
      case 'f':
        return static_cast<double>(static_cast<float>(height));
      default:
        return Chance(0.3) ? std::round(height) : height;
    }
  }

  /// A page over part of the model or all of it, hardly ever beside it; its edges often on those of cells or areas.
  Page PickPage() {
    const auto edges = [&] {
      const int low = Pick(-20, 6);
      switch (Pick(0, 4)) {
        case 0:
        case 1:
          return std::pair(-Pick(16, 20) * 1.0, Pick(16, 20) * 1.0);
        case 2:
          return std::pair(low * 1.0, low + Pick(1, 30) * 1.0);
        case 3:
          return std::pair(Pick(-2, 0) * 8.0, Pick(1, 2) * 8.0);
        default: {
          const double real = low + PickReal(0, 1);
          return std::pair(real, real + PickReal(0.1, 30));
        }
      }
    };
    const auto [left, right] = edges();
    const auto [bottom, top] = edges();
    const double c = model_.cellSize;
    return {left * c, bottom * c, right * c, top * c};
  }

  CoordinateSystem PickSystem(const Page& world) {
    const auto pixels = [&](double length, double perCell) {
      return std::max(1, static_cast<int>(std::lround(length / model_.cellSize * perCell)));
    };
    const std::vector<double> scales = {0.05, 0.13, 0.2, 0.25, 1.0 / 3, 0.5, 0.625, 0.62, 1, 1.5, 2, 2.5, 3, 6.25, 20};
    const double x = PickOf(scales);
    const double y = Chance(0.7) ? x : PickOf(scales);
    const int left = Pick(-9, 9);
    const int top = Pick(-9, 9);
    return {world, PixelRect{left, top, left + pixels(world.right() - world.left(), x),
                             top + pixels(world.top() - world.bottom(), y)}};
  }

  ColorTable PickTable() {
    ColorTable table;
    const double low = PickReal(-4, 1);
    const double high = low + PickReal(0.1, 9);
    if (Chance(0.3)) {
      // Classes that begin where values are.
      const int steps = Pick(1, 12);
      const double begin = Pick(-3, 1);
      EXPECT_TRUE(table.SetRange(begin, begin + 0.5 * steps, steps, PickColor(), PickColor()));
    } else if (Chance(0.5)) {
      EXPECT_TRUE(table.SetRange(low, high, Pick(1, 40), PickColor(), PickColor()));
    } else {
      EXPECT_TRUE(
          table.SetClasses({{low, PickColor(), PickColor(), L""}, {high, PickColor(), PickColor(), L""}}, high + 1));
    }
    if (Chance(0.5)) table.SetBelowColor(PickColor());
    if (Chance(0.5)) table.SetAboveColor(PickColor());
    if (Chance(0.5)) table.SetNoValueColor(PickColor());
    return table;
  }

  int PickBlock() {
    if (Chance(0.1)) return 0;
    if (Chance(0.06)) return PickOf<int>({kUnknownBlock, dTHU});
    if (Chance(0.1)) return tTIM;
    return Chance(0.35) ? ids_.front() : PickOf(ids_);
  }

  /// Setters, and thus what may be left as it was.
  enum Setter {
    kMarks = 1,
    kSpikes = 2,
    kSun = 4,
    kGradient = 8,
    kFactor = 16,
    kOffset = 32,
    kStop = 64,
    kNoDesign = 128,
    kNoValueColor = 256
  };

  /// Everything that both are set up with, and the run that they make.
  struct Setup {
    int sets = 0;  // which setters are called
    Page view;
    CoordinateSystem system;
    int block = 0;
    ColorTable table;
    bool hasMarks = false;
    MarkRules marks;
    Color markColor = 0;
    bool frameAreas = false;
    std::set<Place> spikes;
    bool nullSpikes = false;
    Color spikeColor = 0;
    bool keepOthers = false;
    bool sunOn = false;
    double azimuth = 0;
    double elevation = 0;
    double heightFactor = 1;
    bool gradientMode = false;
    double factor = 1;
    double offset = 0;
    bool stopBefore = false;
    Reading reading = Reading::kPlain;
    bool showNoDesign = false;
    Color noValueColor = 0;
    long long now = kMidnight;
    unsigned filter = 0;
    int walker = 0;
    Page walked;
  };

  Setup PickSetup() {
    Setup setup;
    for (const auto& [setter, chance] : std::map<int, double>{{kMarks, 0.7},
                                                              {kSpikes, 0.3},
                                                              {kSun, 0.6},
                                                              {kGradient, 0.3},
                                                              {kFactor, 0.3},
                                                              {kOffset, 0.3},
                                                              {kStop, 0.5},
                                                              {kNoDesign, 0.7},
                                                              {kNoValueColor, 0.2}}) {
      if (Chance(chance)) setup.sets |= setter;
    }
    setup.view = PickPage();
    setup.system = PickSystem(Chance(0.5) ? setup.view : PickPage());
    setup.block = PickBlock();
    setup.table = PickTable();
    setup.hasMarks = Chance(0.6);
    setup.marks = {static_cast<unsigned>(Pick(0, 9999)), PickOf<int>({0, 10, 50, 100}), !Chance(0.15), !Chance(0.15),
                   Chance(0.15) ? Pick(0, 300) : -1};
    setup.markColor = PickColor();
    setup.frameAreas = Chance(0.3);
    PickSpikes(setup);
    PickSun(setup);
    setup.gradientMode = Chance(0.5);
    setup.factor = PickReal(-2, 4);
    setup.offset = PickReal(-3, 3);
    setup.stopBefore = Chance(0.02);
    if (Chance(0.3)) setup.reading = Reading::kOfSubclass;
    setup.showNoDesign = Chance(0.5);
    setup.noValueColor = PickColor();
    setup.now = Chance(0.2) ? kMidnight : kMidnight + Pick(-100000, 100000);
    setup.filter = Chance(0.5) ? static_cast<unsigned>(Pick(1, 0xFFFFFF)) : 0;
    setup.walker = setup.block == 0 && Chance(0.5) ? 4 : Pick(0, 7);
    setup.walked = Chance(0.4) ? setup.view : PickPage();
    return setup;
  }

  void PickSpikes(Setup& setup) {
    setup.nullSpikes = Chance(0.1);
    if (setup.nullSpikes || Chance(0.2)) return;
    for (int i = Pick(1, 60); i > 0; --i) setup.spikes.emplace(Pick(-16, 15), Pick(-16, 15));
    setup.spikeColor = PickColor();
    setup.keepOthers = Chance(0.6);
  }

  void PickSun(Setup& setup) {
    setup.sunOn = Chance(0.9);
    // On the bounds of the sectors too, and turned round more than once.
    setup.azimuth = Chance(0.5) ? Pick(-16, 24) * 22.5 : PickReal(-400, 800);
    if (Chance(0.2)) setup.azimuth = std::nextafter(setup.azimuth, -1000);
    setup.elevation = Chance(0.3) ? PickOf<double>({0, 90, 45, 30, 400, -300}) : PickReal(0, 90);
    setup.heightFactor = PickOf<double>({1, 1, 10, 0.3, -2, 0});
  }

  template <typename Drawing>
  static void SetCommon(Drawing& drawing, const Setup& setup) {
    drawing.SetCellInfo(setup.block, &setup.table);
    if (setup.sets & kSun) {
      drawing.SetSunIllumination(setup.sunOn, setup.azimuth, setup.elevation, setup.heightFactor);
    }
    if (setup.sets & kGradient) drawing.SetGradientMode(setup.gradientMode);
    if (setup.sets & kFactor) drawing.SetPresentationUnitFactor(setup.factor);
    if (setup.sets & kOffset) drawing.SetPresentationUnitOffset(setup.offset);
    if (setup.sets & kStop) drawing.SetStop(setup.stopBefore);
    if (setup.sets & kNoDesign) drawing.SetShowNoDesign(setup.showNoDesign);
    if (setup.sets & kNoValueColor) drawing.SetNoValueColor(setup.noValueColor);
  }

  void Walk(const Setup& setup, DtmProcessor& processor) {
    DtmAccess& access = grid_->Access();
    if (setup.walker < 2) {
      processor.ProcessAllCells(access);
    } else if (setup.walker < 4) {
      processor.ProcessRect(access, setup.walked);
    } else if (setup.walker < 5) {
      DtmLinearRectProcessor walker(setup.walked, &access, &processor, false);
      walker.SetDrawScale(setup.system.GetScale());
      if (walker.Initialize()) walker.Process();
    } else {
      DrawModel(processor, access, setup.system, setup.view, setup.walker < 7);
    }
    grid_->Leave();
  }

  /// Draws the model, more than once with the same objects at times: what isn't set again stays as it was.
  void Compare() {
    RecordingDevice drawn;
    RecordingDevice expected;
    for (RecordingDevice* const device : {&drawn, &expected}) {
      device->SelectPen(CreatePen(2, 3, 0x123456));
      device->SetBkColor(0x654321);
    }
    OddDrawing drawing;
    ReferenceDrawing reference(model_, expected);
    Comparison both(drawing, drawn, reference, expected);
    const int runs = Chance(0.3) ? Pick(2, 3) : 1;
    std::vector<Setup> setups;
    for (int run = 0; run < runs; ++run) setups.push_back(PickSetup());
    std::deque<DtmMultiProcessor> marks;
    std::deque<RuledMarks> expectedMarks;
    for (const Setup& setup : setups) {
      if (HasFailure()) return;
      TimeStands time(setup.now);
      FilteredColors filtered([&](Color wanted, bool flag) { return flag ? 0 : wanted ^ setup.filter; });
      drawing.SetDrawInfo(&drawn, setup.system, setup.view);
      reference.SetDrawInfo(setup.system, setup.view);
      if (setup.sets & kMarks) {
        marks.emplace_back().AddProcessor(new RuledMarks(setup.marks, drawn, [&] { drawing.SetStop(true); }));
        expectedMarks.emplace_back(setup.marks, expected, [&] { reference.SetStop(true); });
        drawing.SetMarkInfo(setup.hasMarks ? &marks.back() : nullptr, setup.markColor, setup.frameAreas);
        reference.SetMarkInfo(setup.hasMarks ? &expectedMarks.back() : nullptr, setup.markColor, setup.frameAreas);
      }
      if (setup.sets & kSpikes) {
        const auto spikes = std::make_shared<std::set<SPIKE>>();
        drawing.SetSpikeInfo(setup.nullSpikes ? nullptr : spikes, setup.spikeColor, setup.keepOthers);
        // Found after they were handed over.
        for (const auto& [row, col] : setup.spikes) spikes->insert({row, col});
        reference.SetSpikeInfo(setup.spikes, setup.spikeColor, setup.keepOthers);
      }
      SetCommon(drawing, setup);
      SetCommon(reference, setup);
      reference.SetNow(setup.now);
      drawing.SetReading(setup.reading);
      reference.getCellValue = [&](ReferenceDrawing& self, int row, int col, double& value) {
        const bool found = self.GetCellValue(row, col, value);
        if (setup.reading == Reading::kPlain) return found;
        return ReadOdd(row, col, found, value, [&](double& height) { return self.GetCellValueZ(row, col, height); });
      };
      Walk(setup, both);
    }
    operations_ += both.NumCompared();
    for (const auto& [way, count] : reference.ways) ways_[way] += count;
  }

  /// What a view shows of the fills, in no order.
  static std::vector<std::string> FillsWithin(const PixelRect& view, const RecordingDevice& device) {
    std::vector<std::string> fills;
    for (const std::string& line : device.Lines()) {
      std::istringstream words(line);
      std::string what;
      PixelRect rect;
      std::string color;
      if (!(words >> what >> rect.left >> rect.top >> rect.right >> rect.bottom >> color) || what != "fill") continue;
      rect = {std::max(rect.left, view.left), std::max(rect.top, view.top), std::min(rect.right, view.right),
              std::min(rect.bottom, view.bottom)};
      if (rect.IsEmpty()) continue;
      fills.push_back(std::to_string(rect.left) + ' ' + std::to_string(rect.top) + ' ' + std::to_string(rect.right) +
                      ' ' + std::to_string(rect.bottom) + ' ' + color);
    }
    std::sort(fills.begin(), fills.end());
    return fills;
  }

  static constexpr long long kMidnight = 86400LL * 19675;

  std::mt19937 random_;
  PlainModel model_;
  std::vector<int> ids_;
  std::unique_ptr<TestGrid> grid_;
  std::map<std::string, int> ways_;
  std::size_t operations_ = 0;
};

TEST_F(DrawingPropertyTest, EveryOperationIsAsInWords) {
  const auto rounds = static_cast<unsigned>(LongForm(1000, 40000, 300));
  for (unsigned seed = 0; seed < rounds && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    random_.seed(seed);
    MakeModel();
    Compare();
  }
  // All that can happen to an area and a cell, the sun in eight sectors from two sides among it.
  EXPECT_EQ(ways_.size(), 43U);
  EXPECT_GT(operations_, rounds * 100);
}

TEST_F(DrawingPropertyTest, ThePictureIsTheSameWhateverTheWalk) {
  const auto rounds = static_cast<unsigned>(LongForm(300, 20000, 30));
  std::size_t fills = 0;
  for (unsigned seed = 0; seed < rounds && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    random_.seed(seed);
    MakeModel();
    const Setup setup = PickSetup();
    std::vector<std::string> pictures[2];
    for (int walk = 0; walk < 2; ++walk) {
      RecordingDevice device;
      OddDrawing drawing;
      drawing.SetDrawInfo(&device, setup.system, setup.view);
      SetCommon(drawing, setup);
      drawing.SetStop(false);
      if (walk == 0) {
        drawing.ProcessAllCells(grid_->Access());
      } else {
        DrawModel(drawing, grid_->Access(), setup.system, setup.view, true);
      }
      grid_->Leave();
      pictures[walk] = FillsWithin(setup.system.WorldToPixel(setup.view), device);
    }
    EXPECT_EQ(pictures[1], pictures[0]);
    fills += pictures[0].size();
  }
  EXPECT_GT(fills, rounds * 10);
}

}  // namespace
}  // namespace vak::test
