#pragma once

#include <string>
#include <utility>

namespace vak {

/// A font as a user chooses it: a name and a size in points, whatever it is going to be printed on.
class FontInfo {
 public:
  FontInfo() = default;
  /// @param size  in points, of 1/72 inch.
  FontInfo(std::wstring name, int size, bool bold, bool italic)
      : name_(std::move(name)), size_(size), bold_(bold), italic_(italic) {}

  const std::wstring& GetName() const { return name_; }
  int GetSize() const { return size_; }
  bool GetBold() const { return bold_; }
  bool GetItalic() const { return italic_; }

  friend bool operator==(const FontInfo&, const FontInfo&) = default;

 private:
  std::wstring name_ = L"DejaVu Sans";
  int size_ = 8;
  bool bold_ = false;
  bool italic_ = false;
};

}  // namespace vak
