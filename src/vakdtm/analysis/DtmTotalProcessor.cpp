#include "vakdtm/analysis/DtmTotalProcessor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "vakdtm/resources/StringIds.h"
#include "vakdtm/services/files/CFile.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/jobs/BaseVAKMessage.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/text/CExTime.h"
#include "vakdtm/services/text/CVakCsvString.h"
#include "vakdtm/services/text/FormatDouble.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/StringTable.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/services/text/VakFormatter.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

using resources::StringId;

/// Towards 0, with the type's ends for what doesn't fit and 0 for not-a-number.
int TruncateToInt(double value) {
  if (std::isnan(value)) return 0;
  constexpr double kLowest = std::numeric_limits<int>::min();
  constexpr double kHighest = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(value, kLowest, kHighest));
}

std::wstring AreaUnit() {
  return GetCurrentProjectDefinition()->GetUnitCnv().GetUnitMnem(kUnitHorizontalLength) +
         LoadString(StringId::kSquareSuffix);
}

std::wstring HeightUnit() { return GetCurrentProjectDefinition()->GetUnitCnv().GetUnitMnem(kUnitHeight); }

std::wstring HeightText(double z, bool withUnit) {
  return VakFormatter().FormatValue(kUnitHeight, z, withUnit, true, -1);
}

std::wstring TimeText(long seconds) {
  return CExTime::TimeToString(static_cast<double>(seconds) * 1000.0, false, true, true);
}

void WriteLine(CFile& file, const std::wstring& line) {
  const std::string bytes = ToUtf8(line) + '\n';
  file.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
}

/// The report for a person: lines for the log, and the text of a box.
class ReportText {
 public:
  /// @param log  may be null.
  explicit ReportText(BaseVAKMessage* log) : log_(log) {}

  void AddLine(int id, const std::wstring& value) { Add(id, value, L"\n"); }
  void AddLineAndBlank(int id, const std::wstring& value) { Add(id, value, L"\n\n"); }
  void AddLast(int id, const std::wstring& value) { Add(id, value, L""); }

  const std::wstring& Text() const { return text_; }

 private:
  void Add(int id, const std::wstring& value, const wchar_t* end) {
    const std::wstring line = LoadString(id) + value;
    if (log_) log_->LogMessage(1, line, 1, std::wstring(), true, 0);
    text_ += line;
    text_ += end;
  }

  BaseVAKMessage* log_;
  std::wstring text_;
};

std::wstring SurfaceText(double surface) {
  std::string text;
  AppendFixed(text, surface, 2);
  return FromUtf8(text) + L' ' + AreaUnit();
}

}  // namespace

/// The figures that may be missing.
struct DtmTotalProcessor::Heights {
  std::optional<double> minimum, maximum, average, deviation, cellsDeviation;
};

DtmTotalProcessor::DtmTotalProcessor(bool showResults, std::wstring clipName, CFile* file, bool writeHeader)
    : showResults_(showResults), clipName_(std::move(clipName)), file_(file), writeHeader_(writeHeader) {}

DtmTotalProcessor::~DtmTotalProcessor() {
  if (cellArea_ != 0.0 && finished_) Report();
}

std::wstring DtmTotalProcessor::Headings() {
  CVakCsvString line;
  std::size_t item = 0;
  const auto add = [&](int id, const std::wstring& unit) {
    std::wstring text = unit.empty() ? LoadString(id) : LoadString(id) + L' ' + unit;
    // The texts are those of the message, where tabs align the values. A tab between the items is another matter.
    std::erase(text, L'\t');
    line.SetItem(item++, text);
  };
  add(StringId::kStatsClippingPolygon, {});
  add(StringId::kStatsUsedCells, {});
  add(StringId::kStatsUsedArea, AreaUnit());
  add(StringId::kStatsEmptyArea, AreaUnit());
  for (const int id : {StringId::kStatsMinimum, StringId::kStatsMaximum, StringId::kStatsAverage,
                       StringId::kStatsDeviation, StringId::kStatsCellsDeviation}) {
    add(id, HeightUnit());
  }
  add(StringId::kStatsTotalHits, {});
  add(StringId::kStatsLatestTime, {});
  return line.GetString();
}

void DtmTotalProcessor::SetRect(const Page& rect) {
  rect_ = rect;
  rectSet_ = true;
}

void DtmTotalProcessor::ClearExtraBlockIds() {
  extraIds_.clear();
  extraValues_.clear();
}

void DtmTotalProcessor::AddExtraBlockId(int id) {
  extraIds_.push_back(id);
  extraValues_.push_back(EmptyDouble());
}

// ---- The walk

bool DtmTotalProcessor::Init(DtmAccess& access) {
  const DtmFile* const file = access.GetDtmFile();
  if (!file) return false;
  // Not the durations: they add up over walks.
  emptyArea_ = usedArea_ = zSum_ = hitArea_ = hitZSum_ = hitSquareSum_ = deviationSquareSum_ = 0.0;
  cellsWithDeviation_ = 0;
  latestTime_ = 0;
  minimum_.have = maximum_.have = finished_ = false;
  std::fill(extraValues_.begin(), extraValues_.end(), EmptyDouble());
  access_ = &access;
  cellArea_ = file->CellSize() * file->CellSize();
  const auto has = [file](int id) { return file->HasBlockId(id); };
  kinds_ = {.val = has(dVAL),
            .num = has(iNUM),
            .sdv = has(dSDV),
            .dur = has(fDUR),
            .min = has(dMIN),
            .xmn = has(fXMN),
            .ymn = has(fYMN),
            .max = has(dMAX),
            .xmx = has(fXMX),
            .ymx = has(fYMX),
            .tim = has(tTIM)};
  return true;
}

bool DtmTotalProcessor::Fini() {
  finished_ = true;
  return true;
}

bool DtmTotalProcessor::ProcessArea(int row, int col, double& /*weight*/) {
  const DtmFile& file = *access_->GetDtmFile();
  double unused = 0;
  return file.NumBlockIds() == 0 || access_->GetDoubleValue(row, col, file.GetBlockId(0), unused);
}

double DtmTotalProcessor::Read(bool present, int row, int col, int id) const {
  double value = EmptyDouble();
  if (present) access_->GetDoubleValue(row, col, id, value);
  return value;
}

bool DtmTotalProcessor::ProcessCell(int row, int col, double& weight) {
  const double z = Read(kinds_.val, row, col, dVAL);
  if (IsEmptyValue(z)) {
    emptyArea_ += weight;
  } else {
    AddHeight(row, col, z, weight);
  }
  const double duration = Read(kinds_.dur, row, col, fDUR);
  if (!IsEmptyValue(duration)) durationSum_ += duration * weight;
  AddMinimum(row, col, z);
  AddMaximum(row, col, z);
  const double time = Read(kinds_.tim, row, col, tTIM);
  if (!IsEmptyValue(time) && static_cast<long>(time) > latestTime_) latestTime_ = static_cast<long>(time);
  for (std::size_t i = 0; i < extraIds_.size(); ++i) {
    if (IsEmptyValue(extraValues_[i])) access_->GetDoubleValue(row, col, extraIds_[i], extraValues_[i]);
  }
  return true;
}

void DtmTotalProcessor::AddHeight(int row, int col, double z, double weight) {
  usedArea_ += weight;
  zSum_ += z * weight;
  double hits = Read(kinds_.num, row, col, iNUM);
  // A cell that was filled, not measured, counts as one hit. This also meets a count that isn't there.
  if (!(hits >= 1.0)) hits = 1.0;
  hitArea_ += hits * weight;
  hitZSum_ += hits * z * weight;
  double s = Read(kinds_.sdv, row, col, dSDV);
  if (IsEmptyValue(s)) s = 0.0;
  const double f = weight / cellArea_;
  // One more than the hits, where a textbook has one less: figures have to agree with those of earlier surveys.
  hitSquareSum_ += (hits + 1) * s * s * f + z * z * hits * f;
  if (hits > 1.0) {
    deviationSquareSum_ += s * s;
    ++cellsWithDeviation_;
  }
}

void DtmTotalProcessor::AddMinimum(int row, int col, double z) {
  const double deepest = Read(kinds_.min, row, col, dMIN);
  if (!IsEmptyValue(deepest)) {
    if (minimum_.have && !(minimum_.z > deepest)) return;
    StoreExtreme(minimum_, deepest, row, col, Read(kinds_.xmn, row, col, fXMN), Read(kinds_.ymn, row, col, fYMN));
  } else if (!IsEmptyValue(z) && (!minimum_.have || minimum_.z > z)) {
    minimum_.z = z;
    minimum_.have = true;
    // The highest point's position, of all things: what reports show has to stay what it was.
    access_->GetDtmFile()->CalcXY(row, col, maximum_.x, maximum_.y);
  }
}

void DtmTotalProcessor::AddMaximum(int row, int col, double z) {
  const double highest = Read(kinds_.max, row, col, dMAX);
  if (!IsEmptyValue(highest)) {
    if (maximum_.have && !(maximum_.z < highest)) return;
    StoreExtreme(maximum_, highest, row, col, Read(kinds_.xmx, row, col, fXMX), Read(kinds_.ymx, row, col, fYMX));
  } else if (!IsEmptyValue(z) && (!maximum_.have || maximum_.z < z)) {
    maximum_.z = z;
    maximum_.have = true;
    access_->GetDtmFile()->CalcXY(row, col, maximum_.x, maximum_.y);
  }
}

void DtmTotalProcessor::StoreExtreme(Extreme& extreme, double z, int row, int col, double dx, double dy) const {
  double x = 0;
  double y = 0;
  access_->GetDtmFile()->CalcXY(row, col, x, y);
  if (!IsEmptyValue(dx) && !IsEmptyValue(dy)) {
    x += dx;
    y += dy;
    if (rectSet_ && !rect_.IsPointInPage(x, y)) return;
  }
  extreme = {.have = true, .z = z, .x = x, .y = y};
}

// ---- The figures

bool DtmTotalProcessor::Extreme::Get(double& outZ, double& outX, double& outY) const {
  if (!have) return false;
  outZ = z;
  outX = x;
  outY = y;
  return true;
}

double DtmTotalProcessor::UnusedArea() const { return polygon_.GetArea() - usedArea_; }

bool DtmTotalProcessor::GetAverage(double& average) const {
  if (hitArea_ == 0.0) return false;
  average = hitZSum_ / hitArea_;
  return true;
}

int DtmTotalProcessor::TotalNumber() const { return TruncateToInt(hitArea_ / cellArea_ + 0.5); }

bool DtmTotalProcessor::TotalDuration(float& duration) const {
  if (durationSum_ == 0.0) return false;
  duration = static_cast<float>(durationSum_ / cellArea_);
  return true;
}

bool DtmTotalProcessor::GetStandardDeviation(double& deviation) const {
  const double n = hitArea_ / cellArea_;
  if (n < 1.5 || hitArea_ == 0.0) return false;
  const double mean = hitZSum_ / hitArea_;
  // In this order a sum that is no number stays that, and isn't taken for a deviation of 0.
  deviation = std::sqrt(std::max(hitSquareSum_ - mean * mean * n, 0.0) / (n - 1));
  return true;
}

bool DtmTotalProcessor::GetStandardDeviationSd(double& deviation) const {
  if (cellsWithDeviation_ == 0) return false;
  deviation = std::sqrt(deviationSquareSum_ / cellsWithDeviation_);
  return true;
}

// ---- The report

DtmTotalProcessor::Heights DtmTotalProcessor::GetHeights() const {
  Heights heights;
  double value = 0;
  if (minimum_.have) heights.minimum = minimum_.z;
  if (maximum_.have) heights.maximum = maximum_.z;
  if (GetAverage(value)) heights.average = value;
  if (GetStandardDeviation(value)) heights.deviation = value;
  if (GetStandardDeviationSd(value)) heights.cellsDeviation = value;
  return heights;
}

/// With a polygon, what of it isn't used: cells that no area holds are empty as well.
double DtmTotalProcessor::ReportedEmptyArea() const { return polygon_.IsEmpty() ? emptyArea_ : UnusedArea(); }

void DtmTotalProcessor::Report() const {
  if (file_) {
    if (writeHeader_) WriteLine(*file_, Headings());
    WriteFigures(*file_);
  }
  if (showResults_) ShowFigures();
}

void DtmTotalProcessor::WriteFigures(CFile& file) const {
  const Heights heights = GetHeights();
  CVakCsvString line;
  line.Clear();
  const auto setHeight = [&line](std::size_t item, const std::optional<double>& z) {
    line.Set(item, z ? HeightText(*z, false) : std::wstring());
  };
  line.SetItem(0, clipName_);
  line.SetItem(1, line.AdjustToLocalDecimal(std::to_wstring(TruncateToInt(UsedCells()))));
  line.Set(2, FormatDouble(usedArea_, 2, 0));
  line.Set(3, FormatDouble(ReportedEmptyArea(), 2, 0));
  setHeight(4, heights.minimum);
  setHeight(5, heights.maximum);
  setHeight(6, heights.average);
  setHeight(7, heights.deviation);
  setHeight(8, heights.cellsDeviation);
  line.SetItem(9, line.AdjustToLocalDecimal(std::to_wstring(TotalNumber())));
  line.SetItem(10, latestTime_ != 0 ? TimeText(latestTime_) : std::wstring());
  WriteLine(file, line.GetString());
}

void DtmTotalProcessor::ShowFigures() const {
  const Heights heights = GetHeights();
  const std::wstring noValue = LoadString(StringId::kStatsNoValue);
  const auto height = [&noValue](const std::optional<double>& z) { return z ? HeightText(*z, true) : noValue; };
  ReportText report(messageLog_);
  if (!clipName_.empty()) report.AddLine(StringId::kStatsClippingPolygon, clipName_);
  report.AddLine(StringId::kStatsUsedCells, std::to_wstring(TruncateToInt(UsedCells())));
  report.AddLine(StringId::kStatsUsedArea, SurfaceText(usedArea_));
  report.AddLineAndBlank(StringId::kStatsEmptyArea, SurfaceText(ReportedEmptyArea()));
  report.AddLine(StringId::kStatsMinimum, height(heights.minimum));
  report.AddLine(StringId::kStatsMaximum, height(heights.maximum));
  report.AddLine(StringId::kStatsAverage, height(heights.average));
  report.AddLineAndBlank(StringId::kStatsDeviation, height(heights.deviation));
  report.AddLineAndBlank(StringId::kStatsCellsDeviation, height(heights.cellsDeviation));
  report.AddLine(StringId::kStatsTotalHits, std::to_wstring(TotalNumber()));
  report.AddLast(StringId::kStatsLatestTime, latestTime_ != 0 ? TimeText(latestTime_) : noValue);
  ShowMessage(MessageIcon::kInformation, LoadString(StringId::kStatsTitle), report.Text());
}

}  // namespace vak
