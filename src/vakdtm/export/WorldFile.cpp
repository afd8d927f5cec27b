#include "vakdtm/export/WorldFile.h"

#include <string_view>

#include "vakdtm/services/files/OutputFile.h"
#include "vakdtm/services/text/FormatNumber.h"

namespace vak {

std::wstring WorldFilePath(std::wstring imagePath) {
  constexpr std::wstring_view kImage = L".tif";
  for (std::size_t at = imagePath.find(kImage); at != std::wstring::npos;
       at = imagePath.find(kImage, at + kImage.size())) {
    imagePath.replace(at, kImage.size(), L".tfw");
  }
  return imagePath;
}

bool WriteWorldFile(const std::wstring& path, double cellSize, double left, double top) {
  std::string text;
  const auto line = [&](double value) {
    AppendFixed(text, value, 6);
    text += '\n';
  };
  line(cellSize);
  text += "0.0\n0.0\n";
  line(-cellSize);
  line(left);
  line(top);
  OutputFile file;
  return file.Open(path) && file.Write(text.data(), static_cast<unsigned>(text.size())) && file.Close();
}

}  // namespace vak
