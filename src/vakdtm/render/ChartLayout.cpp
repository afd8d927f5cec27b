#include "vakdtm/render/ChartLayout.h"

#include <algorithm>
#include <cmath>

#include "vakdtm/render/RoundSteps.h"

namespace vak {
namespace {

/// The map is at most so many times as wide as high, and so many times as high as wide.
constexpr double kWidest = 5;
constexpr double kHighest = 2;

constexpr double kMargin = 0.02;  // of the data's longer side, on each side

int Times(int fontHeight, double factor) { return static_cast<int>(std::lround(fontHeight * factor)); }

Page DataWithMargin(const ChartPlan& plan) {
  if (!plan.hasMargin) return plan.data;
  const double margin = kMargin * std::max(plan.data.Width(), plan.data.top() - plan.data.bottom());
  return {plan.data.left() - margin, plan.data.bottom() - margin, plan.data.right() + margin, plan.data.top() + margin};
}

/// What a map of some width shows, and its height.
struct MapFit {
  int height = 0;
  Page view;
};

MapFit FitMap(const Page& data, int width, int lowest, int highest) {
  const Point centre = data.GetCenter();
  const double dataHeight = data.top() - data.bottom();
  double scale = data.Width() / width;  // metres a pixel
  MapFit fit;
  fit.height = static_cast<int>(
      std::clamp(std::round(dataHeight / scale), static_cast<double>(lowest), static_cast<double>(highest)));
  scale = std::max(scale, dataHeight / fit.height);
  // Rounding to whole pixels shows a hair more or less in y; what the width shows is kept to.
  if (std::fabs(scale * width - data.Width()) <= data.Width() / width) scale = data.Width() / width;
  const double halfWidth = scale * width / 2;
  const double halfHeight = scale * fit.height / 2;
  fit.view = Page(centre.x - halfWidth, centre.y - halfHeight, centre.x + halfWidth, centre.y + halfHeight);
  return fit;
}

/// The parts of a chart around the map. They depend on the map's size, and it on them: what they take beside the map
/// only ever grows from round to round, so that this comes to an end.
class Arrangement {
 public:
  Arrangement(const ChartPlan& plan, const TextMeasure& measure, ChartLayout& layout)
      : plan_(plan), measure_(measure), layout_(layout), data_(DataWithMargin(plan)) {
    font_ = std::max(11, 7 + plan.width / 130);
    pad_ = Times(font_, 0.8);
    smallest_ = Times(font_, 6);
    layout_.width = plan.width;
    layout_.fontHeight = font_;
    layout_.lineWidth = std::max(1, static_cast<int>(std::lround(plan.width / 1400.0)));
    layout_.tickLength = Times(font_, 0.45);
    layout_.labelGap = layout_.tickLength + Times(font_, 0.25);
    layout_.hasLegend = plan.hasLegend;
    layout_.hasScaleBar = plan.hasScaleBar;
    layout_.hasNorthArrow = true;
    layout_.legend.isUpright = plan.width >= 36 * font_;
  }

  bool Make() {
    PlaceTitle();
    bool isStable = false;
    for (int round = 0; round < 8 && !isStable; ++round) {
      if (!PlaceMap()) return false;
      isStable = FindTicks();
      if (layout_.hasLegend && layout_.legend.isUpright && Height(layout_.map) < 18 * font_) {
        // Too low for a bar beside it.
        layout_.legend.isUpright = false;
        legendDepth_ = 0;
        isStable = false;
      }
    }
    if (!isStable) return false;
    int bottom = layout_.map.bottom + layout_.labelGap + layout_.x.Depth() + Times(font_, 0.6);
    if (layout_.hasLegend) {
      if (layout_.legend.isUpright) {
        PlaceUprightLegend();
      } else {
        bottom = PlaceLyingLegend(bottom);
      }
    }
    return PlaceFooter(bottom);
  }

 private:
  static int Width(const PixelRect& rect) { return rect.right - rect.left; }
  static int Height(const PixelRect& rect) { return rect.bottom - rect.top; }

  TextSize Measure(const std::wstring& text) const { return measure_(text, font_); }

  void PlaceTitle() {
    top_ = pad_;
    if (plan_.title.empty()) return;
    const int width = plan_.width - 2 * pad_;
    layout_.title = FitText(plan_.title, width, Times(font_, 1.5), font_, measure_);
    const TextSize& size = layout_.title.size;
    const int left = pad_ + (width - size.width) / 2;
    layout_.titleBox = {left, pad_, left + size.width, pad_ + size.height};
    top_ = layout_.titleBox.bottom + Times(font_, 0.6);
  }

  /// What comes under the map, labels of the x axis included.
  int Below() const {
    int below = layout_.labelGap + xDepth_ + Times(font_, 0.6) + FooterHeight() + pad_;
    if (layout_.hasLegend && !layout_.legend.isUpright) below += LyingLegendHeight();
    return below;
  }
  int FooterHeight() const { return Times(font_, 3.1); }
  int LyingLegendHeight() const { return 2 * Measure(L"0").height + Times(font_, 1 + 0.3 + 0.6 + 0.9); }

  bool PlaceMap() {
    const int left = pad_ + yDepth_ + layout_.labelGap;
    const int right = plan_.width - pad_ - layout_.tickLength - LegendColumn();
    const int width = right - left;
    if (width < smallest_) return false;
    const int lowest = std::max(smallest_, static_cast<int>(width / kWidest));
    const int room = ChartLayout::kMostPixels - top_ - layout_.tickLength - Below();
    const int highest = std::min(static_cast<int>(width * kHighest), room);
    if (highest < lowest) return false;
    const MapFit fit = FitMap(data_, width, lowest, highest);
    const int top = top_ + layout_.tickLength;
    layout_.map = {left, top, right, top + fit.height};
    layout_.view = fit.view;
    return true;
  }

  /// @return whether what the labels take beside the map is what was left for them.
  bool FindTicks() {
    const double factor = plan_.lengthFactor;
    AxisTicks::Span x;
    x.start = layout_.view.left() * factor;
    x.end = layout_.view.right() * factor;
    x.length = Width(layout_.map);
    x.before = layout_.map.left - pad_ / 2;
    x.behind = plan_.width - layout_.map.right - pad_ / 2;
    x.fontHeight = font_;
    x.spacing = 5;
    layout_.x = AxisTicks::Find(x, measure_);
    AxisTicks::Span y = x;
    y.start = layout_.view.bottom() * factor;
    y.end = layout_.view.top() * factor;
    y.length = Height(layout_.map);
    y.before = layout_.tickLength;
    y.behind = layout_.tickLength;
    layout_.y = AxisTicks::Find(y, measure_);
    AlignSteps(x, y);
    bool isStable = Keep(layout_.x.Depth(), xDepth_);
    isStable = Keep(layout_.y.Depth(), yDepth_) && isStable;
    if (layout_.hasLegend) isStable = FindLegendTicks() && isStable;
    return isStable;
  }

  /// Both axes count in the same steps, where that leaves both enough of them.
  void AlignSteps(AxisTicks::Span x, AxisTicks::Span y) {
    AxisTicks& finer = layout_.x.step < layout_.y.step ? layout_.x : layout_.y;
    AxisTicks::Span& span = &finer == &layout_.x ? x : y;
    span.smallestStep = std::max(layout_.x.step, layout_.y.step);
    const AxisTicks coarse = AxisTicks::Find(span, measure_);
    if (coarse.step == span.smallestStep && coarse.NumLabels() >= 3) finer = coarse;
  }

  static bool Keep(int depth, int& room) {
    if (depth <= room) return true;
    room = depth;
    return false;
  }

  // ---- legend

  int LegendColumn() const {
    if (!layout_.hasLegend || !layout_.legend.isUpright) return 0;
    return Times(font_, 1.2 + 1.2 + 0.5 + 0.4) + legendDepth_ + Measure(plan_.legendTitle).height;
  }

  int LegendLength() const {
    const int map = layout_.legend.isUpright ? Height(layout_.map) : Width(layout_.map);
    return std::min(map, std::max(Times(font_, layout_.legend.isUpright ? 22 : 34), map / 2));
  }

  bool FindLegendTicks() {
    LegendPlan& legend = layout_.legend;
    const int length = LegendLength();
    const int point = std::min(Times(font_, 1), length / 6);
    legend.lowPoint = plan_.isOpenBelow ? point : 0;
    legend.highPoint = plan_.isOpenAbove ? point : 0;
    AxisTicks::Span span;
    span.start = plan_.legendLow;
    span.end = plan_.legendHigh;
    span.length = length - legend.lowPoint - legend.highPoint;
    span.fontHeight = font_;
    span.smallestStep = plan_.legendStep;
    span.spacing = legend.isUpright ? 2.2 : 4;
    span.lie = legend.isUpright ? AxisTicks::Lie::kAcross : AxisTicks::Lie::kAlong;
    span.before = legend.isUpright ? Measure(L"0").height / 2 + 1 : pad_;
    span.behind = span.before;
    legend.ticks = AxisTicks::Find(span, measure_);
    return Keep(legend.ticks.Depth(), legendDepth_);
  }

  void PlaceUprightLegend() {
    LegendPlan& legend = layout_.legend;
    const int left = layout_.map.right + layout_.tickLength + Times(font_, 1.2);
    // A label at the very end sticks out by half.
    legend.bar = {left, layout_.map.top, left + Times(font_, 1.2), layout_.map.top + LegendLength()};
    legend.title = FitText(plan_.legendTitle, Height(legend.bar), font_, Times(font_, 0.7), measure_);
    const int titleLeft = legend.bar.right + Times(font_, 0.5) + legendDepth_ + Times(font_, 0.4);
    const int titleTop = legend.bar.top + (Height(legend.bar) - legend.title.size.width) / 2;
    legend.titleBox = {titleLeft, titleTop, titleLeft + legend.title.size.height, titleTop + legend.title.size.width};
  }

  /// @return the place below it.
  int PlaceLyingLegend(int top) {
    LegendPlan& legend = layout_.legend;
    const int left = layout_.map.left;
    legend.title = FitText(plan_.legendTitle, Width(layout_.map), font_, Times(font_, 0.7), measure_);
    legend.titleBox = {left, top, left + legend.title.size.width, top + legend.title.size.height};
    const int bar = top + Measure(L"0").height + Times(font_, 0.3);
    legend.bar = {left, bar, left + LegendLength(), bar + font_};
    return top + LyingLegendHeight();
  }

  // ---- footer

  bool PlaceFooter(int top) {
    const int height = FooterHeight();
    layout_.height = top + height + pad_;
    const int arrowWidth = Times(font_, 1.9);
    layout_.northArrow = {layout_.map.right - arrowWidth, top, layout_.map.right, top + height};
    if (layout_.hasScaleBar && !PlaceScaleBar(top, layout_.northArrow.left - Times(font_, 1))) return false;
    return layout_.height <= ChartLayout::kMostPixels;
  }

  /// Makes the bar of one length. @return false when its labels have no room.
  bool TryScaleBar(double length, int top, int right) {
    ScaleBarPlan& plan = layout_.scaleBar;
    const double perUnit = Width(layout_.map) / (layout_.view.Width() * plan_.lengthFactor);
    const bool isKilometres = plan_.lengthUnit == L"m" && length >= 1000;
    plan.start = L"0";
    plan.end = TickLabel(isKilometres ? length / 1000 : length, isKilometres ? length / 1000 : length);
    plan.end += L"\u00A0" + (isKilometres ? L"km" : plan_.lengthUnit);
    // Of a two, four halves; else fifths.
    plan.segments = TickLabel(length / RoundStepUpTo(length / 5), 1).size() == 2 ? 4 : 5;
    const TextSize start = Measure(plan.start);
    const TextSize end = Measure(plan.end);
    const int left = std::max(layout_.map.left, pad_ / 2 + start.width / 2);
    const int pixels = static_cast<int>(std::lround(length * perUnit));
    const int labelTop = top + Times(font_, 0.1);
    const int barTop = labelTop + std::max(start.height, end.height) + Times(font_, 0.2);
    plan.bar = {left, barTop, left + pixels, barTop + Times(font_, 0.5)};
    plan.startLabel = {left - start.width / 2, labelTop, left - start.width / 2 + start.width, labelTop + start.height};
    const int endLeft = plan.bar.right - end.width / 2;
    plan.endLabel = {endLeft, labelTop, endLeft + end.width, labelTop + end.height};
    return pixels > 0 && plan.endLabel.left >= plan.startLabel.right + font_ / 2 && plan.endLabel.right <= right;
  }

  bool PlaceScaleBar(int top, int right) {
    const double unitsPerPixel = layout_.view.Width() * plan_.lengthFactor / Width(layout_.map);
    const int longest = std::max(Times(font_, 4), std::min(Times(font_, 18), Width(layout_.map) * 2 / 5));
    double length = RoundStepUpTo(longest * unitsPerPixel);
    if (TryScaleBar(length, top, right)) return true;
    // Two labels that meet over a short bar need a longer one, one that meets the arrow a shorter.
    return TryScaleBar(NextRoundStep(length), top, right) || TryScaleBar(RoundStepUpTo(length * 0.6), top, right);
  }

  const ChartPlan& plan_;
  const TextMeasure& measure_;
  ChartLayout& layout_;
  const Page data_;
  int font_ = 0;
  int pad_ = 0;
  int smallest_ = 0;  // side of the map
  int top_ = 0;       // of what lies below the title
  int xDepth_ = 0;    // of the labels under the map
  int yDepth_ = 0;    // and on its left
  int legendDepth_ = 0;
};

bool MakeBare(const ChartPlan& plan, ChartLayout& layout) {
  layout.width = plan.width;
  layout.lineWidth = std::max(1, static_cast<int>(std::lround(plan.width / 1400.0)));
  layout.fontHeight = std::max(11, 7 + plan.width / 130);
  const double height = plan.width * (plan.data.top() - plan.data.bottom()) / plan.data.Width();
  if (height >= ChartLayout::kMostPixels + 0.5) return false;
  const MapFit fit = FitMap(plan.data, plan.width, 1, ChartLayout::kMostPixels);
  layout.height = fit.height;
  layout.map = {0, 0, plan.width, fit.height};
  layout.view = fit.view;
  return true;
}

}  // namespace

bool ChartLayout::Make(const ChartPlan& plan, const TextMeasure& measure, ChartLayout& layout) {
  ChartLayout made;
  if (!(plan.isBare ? MakeBare(plan, made) : Arrangement(plan, measure, made).Make())) return false;
  layout = std::move(made);
  return true;
}

PixelRect ChartLayout::XLabelBox(const AxisTick& tick) const {
  const int wide = x.across ? tick.size.height : tick.size.width;
  const int high = x.across ? tick.size.width : tick.size.height;
  const int left = map.left + static_cast<int>(std::lround(tick.at - wide / 2.0));
  const int top = map.bottom + labelGap;
  return {left, top, left + wide, top + high};
}

PixelRect ChartLayout::YLabelBox(const AxisTick& tick) const {
  // A label along this axis reads upwards.
  const int wide = y.across ? tick.size.width : tick.size.height;
  const int high = y.across ? tick.size.height : tick.size.width;
  const int right = map.left - labelGap;
  const int top = map.bottom - static_cast<int>(std::lround(tick.at + high / 2.0));
  return {right - wide, top, right, top + high};
}

double ChartLayout::LegendPlace(double at) const {
  return legend.isUpright ? legend.bar.bottom - legend.lowPoint - at : legend.bar.left + legend.lowPoint + at;
}

PixelRect ChartLayout::LegendLabelBox(const AxisTick& tick) const {
  const double place = LegendPlace(tick.at);
  if (legend.isUpright) {
    const int left = legend.bar.right + static_cast<int>(std::lround(fontHeight * 0.5));
    const int top = static_cast<int>(std::lround(place - tick.size.height / 2.0));
    return {left, top, left + tick.size.width, top + tick.size.height};
  }
  const int left = static_cast<int>(std::lround(place - tick.size.width / 2.0));
  const int top = legend.bar.bottom + static_cast<int>(std::lround(fontHeight * 0.6));
  return {left, top, left + tick.size.width, top + tick.size.height};
}

}  // namespace vak
