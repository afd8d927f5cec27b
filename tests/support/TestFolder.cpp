#include "support/TestFolder.h"

#include <cstdlib>
#include <fstream>
#include <ios>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace vak::test {

TestFolder::TestFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vakdtm-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no test folder: " + pattern);
  path_ = pattern;
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::wstring TestFolder::WideFile(std::string_view name) const {
  const std::string file = File(name);
  return std::wstring(file.begin(), file.end());
}

std::string TestFolder::Write(std::string_view name, std::string_view content) const {
  std::ofstream out(path_ / name, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  if (!out) throw std::runtime_error("not written: " + File(name));
  return File(name);
}

std::string TestFolder::Write(std::string_view name, const Bytes& content) const {
  return Write(name, std::string_view(reinterpret_cast<const char*>(content.data()), content.size()));
}

std::string TestFolder::Text(std::string_view name) const {
  std::ifstream in(path_ / name, std::ios::binary);
  if (!in) throw std::runtime_error("not there: " + File(name));
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Bytes TestFolder::Content(std::string_view name) const {
  const std::string text = Text(name);
  return Bytes(text.begin(), text.end());
}

}  // namespace vak::test
