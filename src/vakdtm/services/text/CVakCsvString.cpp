#include "vakdtm/services/text/CVakCsvString.h"

#include <cstddef>
#include <string>

namespace vak {
namespace {

void AppendQuoted(std::wstring& line, const std::wstring& item) {
  line += L'"';
  for (const wchar_t letter : item) {
    if (letter == L'"') line += L'"';
    line += letter;
  }
  line += L'"';
}

}  // namespace

void CVakCsvString::SetItem(std::size_t index, const std::wstring& text) {
  if (index >= kMostItems) return;
  if (index >= items_.size()) items_.resize(index + 1);
  items_[index] = text;
}

void CVakCsvString::Set(std::size_t index, const std::wstring& text) { SetItem(index, AdjustToLocalDecimal(text)); }

std::wstring CVakCsvString::GetString() const {
  const auto mustQuote = [this](const std::wstring& item) {
    const bool holdsSeparator = !separators_.list.empty() && item.find(separators_.list) != std::wstring::npos;
    return holdsSeparator || item.find_first_of(L"\"\r\n") != std::wstring::npos;
  };
  std::wstring line;
  for (std::size_t index = 0; index < items_.size(); ++index) {
    if (index > 0) line += separators_.list;
    if (mustQuote(items_[index])) {
      AppendQuoted(line, items_[index]);
    } else {
      line += items_[index];
    }
  }
  return line;
}

}  // namespace vak
