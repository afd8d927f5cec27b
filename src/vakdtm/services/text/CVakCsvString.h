#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vakdtm/services/text/LocaleSeparators.h"

namespace vak {

/// A line of a delimited list in the user's locale: numbered items, joined with the list separator.
///
/// The marks of the locale are taken when the line is built and stay. Belongs to one thread.
class CVakCsvString {
 public:
  /// A line has no more items than this.
  static constexpr std::size_t kMostItems = 1 << 16;

  CVakCsvString() = default;

  /// Sets an item to a text as it stands: a name, a heading, a time.
  /// @param index  from 0; items that were never set and lie before it are empty. From `kMostItems` on nothing is set.
  void SetItem(std::size_t index, const std::wstring& text);

  /// Sets an item to the text of a number as `AdjustToLocalDecimal` makes it. The same of a text that has been through
  /// that already, unless the locale's mark has a point in it: then its points are replaced once more.
  void Set(std::size_t index, const std::wstring& text);

  /// Removes all items.
  void Clear() { items_.clear(); }

  /// The items, joined. One that holds the list separator, a double quote or a line end is enclosed in double quotes,
  /// and double quotes in it are doubled, so that it can be told from two.
  std::wstring GetString() const;

  /// The text with every point replaced by the locale's decimal mark.
  std::wstring AdjustToLocalDecimal(const std::wstring& text) const { return ReplaceDecimalPoint(text, separators_); }

 private:
  LocaleSeparators separators_ = GetLocaleSeparators();
  std::vector<std::wstring> items_;
};

}  // namespace vak
