#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "vakdtm/store/GridFormat.h"

#include "support/RunCommand.h"
#include "support/TestFolder.h"

namespace vak::test {

/// A folder with models in it, and the command run on them.
class CommandModels {
 public:
  using Words = std::vector<std::string>;

  static CommandResult Run(Words words, const std::string& input = {}) {
    words.insert(words.begin(), VAKDTM_COMMAND);
    return RunCommand(std::move(words), input).Wait();
  }

  /// The same with standard error on a terminal, which grows when no file may.
  static CommandResult RunOnTerminal(Words words) {
    words.insert(words.begin(), VAKDTM_COMMAND);
    CommandResult result = RunCommand(std::move(words), {}, RunCommand::StandardError::kTerminal).Wait();
    std::erase(result.err, '\r');
    return result;
  }

  /// Runs the command as somebody who isn't the superuser, to whom nothing is closed.
  CommandResult RunAsStranger(Words words) const { return RunAsStranger(CopyForStrangers(), std::move(words)); }

  /// @return a copy of the command in the folder: the build may lie where strangers don't get.
  std::string CopyForStrangers() const {
    std::filesystem::copy_file(VAKDTM_COMMAND, File("vakdtm"));
    return File("vakdtm");
  }

  /// The same with such a copy, more than once.
  static CommandResult RunAsStranger(const std::string& copy, Words words) {
    words.insert(words.begin(), copy);
    if (geteuid() == 0) words.insert(words.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    return RunCommand(std::move(words)).Wait();
  }

  std::string File(std::string_view name) const { return folder_.File(name); }
  const TestFolder& Folder() const { return folder_; }

  /// A model made from this text by `import`. @return its path.
  std::string Make(const std::string& name, const std::string& soundings, Words options = {}) const {
    Words words = {"import", File(name), "-", "--quiet"};
    words.insert(words.end(), options.begin(), options.end());
    if (std::find(options.begin(), options.end(), "--cell-size") == options.end()) {
      words.insert(words.end(), {"--cell-size", "1"});
    }
    if (Run(words, soundings).status != 0) throw std::runtime_error("no model");
    return File(name);
  }

  /// A model of `VAL`, side x side cells of 1 m that wave, so that every level has lines, with a gap in the middle.
  void MakeWaves(const std::string& name, int side) const {
    std::string text;
    for (int row = 0; row < side; ++row) {
      for (int col = 0; col < side; ++col) {
        if (row == side / 2 && col == side / 2) continue;
        char line[80];
        std::snprintf(line, sizeof line, "%d.5,%d.5,%.3f\n", 500000 + col, 5800000 + row,
                      -10 + 3 * std::sin(col * 0.21) * std::cos(row * 0.17));
        text += line;
      }
    }
    Make(name, text, {"--blocks", "VAL"});
  }

  /// What lies in the folder, sorted.
  Words Names() const {
    Words names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /// Takes the last byte, so that there is no index any more.
  void CutIndex(const std::string& name) const {
    std::filesystem::resize_file(File(name), std::filesystem::file_size(File(name)) - 1);
  }

  /// Makes the file end in the middle of its last area. @return where that area's chunk begins.
  std::size_t Damage(const std::string& name) const {
    const std::string bytes = folder_.Text(name);
    // Area chunks are told by their tag, little-endian.
    const std::size_t last = bytes.rfind("aera");
    if (last == std::string::npos) throw std::runtime_error("no area");
    folder_.Write(name, std::string_view(bytes).substr(0, last + 40));
    return last;
  }

  /// Gives the file an index of the old kind, which keeps no ranges.
  void MakeIndexOld(const std::string& name) const {
    Bytes bytes = folder_.Content(name);
    const auto at = [&bytes](std::size_t place) { return reinterpret_cast<std::byte*>(bytes.data()) + place; };
    const auto tail = grid::LoadHeader(at(bytes.size() - grid::kHeaderSize));
    const auto count = static_cast<std::size_t>(tail.length - grid::kHeaderSize) / grid::kEntrySize;
    const std::size_t start = bytes.size() - static_cast<std::size_t>(tail.length) - grid::kHeaderSize;
    const auto length = static_cast<std::int32_t>(grid::kHeaderSize + count * grid::kOldEntrySize);
    const std::vector<std::byte> entries(at(start + grid::kHeaderSize), at(bytes.size() - grid::kHeaderSize));
    std::byte* to = grid::StoreHeader(at(start), {grid::kOldIndex, length + 1});
    for (std::size_t i = 0; i < count; ++i) {
      to = std::copy_n(entries.data() + i * grid::kEntrySize, grid::kOldEntrySize, to);
    }
    to = grid::StoreHeader(to, {grid::kOldIndex, length});
    bytes.resize(static_cast<std::size_t>(to - at(0)));
    folder_.Write(name, bytes);
  }

  /// What `cells` writes for the file.
  std::string Cells(const std::string& name, const std::string& blocks = "VAL") const {
    const CommandResult result = Run({"cells", File(name), "--blocks", blocks});
    if (result.status != 0) throw std::runtime_error(result.err);
    return result.out;
  }

 private:
  TestFolder folder_;
};

/// The lines of a text in alphabetical order.
inline std::vector<std::string> SortedLines(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

/// Every byte and the time of a file, to be compared later.
class FileState {
 public:
  FileState(const TestFolder& folder, std::string name) : folder_(folder), name_(std::move(name)) {
    // Long ago, so that any change of the time shows.
    std::filesystem::last_write_time(folder_.Path() / name_, time_);
    bytes_ = folder_.Content(name_);
  }
  bool IsUnchanged() const {
    return folder_.Content(name_) == bytes_ && std::filesystem::last_write_time(folder_.Path() / name_) == time_;
  }

 private:
  const TestFolder& folder_;
  std::string name_;
  std::filesystem::file_time_type time_ = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1000);
  Bytes bytes_;
};

}  // namespace vak::test
