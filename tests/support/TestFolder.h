#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vak::test {

using Bytes = std::vector<std::uint8_t>;

/// A new, empty folder below the system's temporary folder, gone with all it holds when the object goes.
///
/// Throws when it can't be made or a file in it can't be read or written: a test without its files is no test.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();

  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }

  /// @return the path of `name` in this folder, as UTF-8. Nothing is made.
  std::string File(std::string_view name) const { return (path_ / name).string(); }

  /// The same as wide text; `name` is plain ASCII.
  std::wstring WideFile(std::string_view name) const;

  /// Makes the file `name` with this content, or replaces it. @return its path.
  std::string Write(std::string_view name, std::string_view content) const;
  std::string Write(std::string_view name, const Bytes& content) const;

  /// @return the whole content of the file `name`.
  std::string Text(std::string_view name) const;
  Bytes Content(std::string_view name) const;

  bool Has(std::string_view name) const { return std::filesystem::exists(path_ / name); }

 private:
  std::filesystem::path path_;
};

}  // namespace vak::test
