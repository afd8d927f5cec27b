#include "vakdtm/render/DtmColorTableGenerator.h"

#include <cmath>
#include <utility>

#include "vakdtm/render/EndOfToday.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/store/DtmBlockId.h"

namespace vak {
namespace {

constexpr Color kBlack = 0;
constexpr Color kWhite = 16777215;
constexpr Color kBlue = 16711680;
constexpr Color kRed = 255;
constexpr Color kBrown = 273825;
constexpr Color kYellow = 65535;

}  // namespace

DtmColorTableGenerator::DtmColorTableGenerator(int block, const std::wstring& fileName, int steps, bool colored,
                                               bool reversed, bool threeColors)
    : DtmColorTableGenerator(block, fileName, steps, colored ? kBlue : kBlack, colored ? kRed : kWhite) {
  threeColors_ = threeColors;
  if (threeColors) {
    first_ = kBrown;
    second_ = kYellow;
  }
  if (reversed) std::swap(first_, second_);
}

// NOLINTNEXTLINE(modernize-pass-by-value): the signature that applications know
DtmColorTableGenerator::DtmColorTableGenerator(int block, const std::wstring& fileName, int steps, Color first,
                                               Color second)
    : DtmMinMaxProcessor(block),
      block_(block),
      fileName_(fileName),
      steps_(steps),
      threeColors_(false),
      first_(first),
      second_(second),
      table_(std::make_unique<ColorTable>()),
      file_(std::make_unique<SmartFileImpl>()) {}

DtmColorTableGenerator::DtmColorTableGenerator(DtmColorTableGenerator&& other) noexcept = default;
DtmColorTableGenerator& DtmColorTableGenerator::operator=(DtmColorTableGenerator&& other) noexcept = default;
DtmColorTableGenerator::~DtmColorTableGenerator() = default;

bool DtmColorTableGenerator::Fini() {
  if (!HaveValues()) return true;
  // One that was moved from has nothing to write with.
  if (table_ == nullptr || file_ == nullptr) return false;
  double low = MinValue();
  double high = MaxValue();
  if (block_ == tTIM) {
    const double end = EndOfToday();
    low = (end - low) / kSecondsOfDay;
    high = (end - high) / kSecondsOfDay;
  }
  const bool made = threeColors_ ? table_->SetRangeRGB3(low, high, steps_, kBlack, first_, second_)
                                 : table_->SetRange(low, high, steps_, first_, second_);
  if (!made) return false;
  savedName_ = fileName_;
  file_->FileClose();
  return table_->FileSave(file_->GetFileObject()) && file_->FileSave(fileType_, savedName_);
}

}  // namespace vak
