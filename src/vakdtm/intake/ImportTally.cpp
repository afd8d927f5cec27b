#include "vakdtm/intake/ImportTally.h"

#include <bit>

namespace vak {

void ImportTally::CountSkipped(std::int64_t line, std::string_view text) {
  ++skipped_;
  Note(line, Reason::kNotParsed, text);
}

void ImportTally::CountRefused(std::int64_t line, std::string_view text) {
  ++refused_;
  Note(line, Reason::kOutside, text);
}

void ImportTally::Note(std::int64_t line, Reason reason, std::string_view text) {
  if (rejected_.size() >= kNotedLines) return;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  rejected_.push_back({source_ < 0 ? 0 : source_, line, reason, std::string(text)});
}

void ImportTally::EnterArea(int row, int col) {
  const DtmAreaPos pos(areaSize_, row, col);
  const std::uint64_t key =
      std::uint64_t{static_cast<std::uint32_t>(pos.AreaRow())} << 32 | static_cast<std::uint32_t>(pos.AreaCol());
  bits_ = &touched_[key];
  const std::size_t cells = static_cast<std::size_t>(areaSize_) * static_cast<std::size_t>(areaSize_);
  if (bits_->empty()) bits_->resize((cells + 63) / 64);
  bottomRow_ = pos.AreaRow() * areaSize_;
  leftCol_ = pos.AreaCol() * areaSize_;
}

std::int64_t ImportTally::Cells() const {
  std::int64_t cells = 0;
  for (const auto& [key, bits] : touched_) {
    for (const std::uint64_t word : bits) cells += std::popcount(word);
  }
  return cells;
}

}  // namespace vak
