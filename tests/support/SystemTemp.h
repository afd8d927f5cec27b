#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "support/TestFolder.h"

namespace vak::test {

/// Makes a folder of the test's own the system's temporary folder.
class SystemTemp {
 public:
  SystemTemp() {
    if (const char* former = std::getenv("TMPDIR")) former_ = former;
    setenv("TMPDIR", folder_.Path().c_str(), 1);
  }
  ~SystemTemp() {
    if (former_.empty()) {
      unsetenv("TMPDIR");
    } else {
      setenv("TMPDIR", former_.c_str(), 1);
    }
  }
  SystemTemp(const SystemTemp&) = delete;
  SystemTemp& operator=(const SystemTemp&) = delete;

  std::filesystem::path Path() const { return std::filesystem::canonical(folder_.Path()); }
  std::filesystem::path Ours() const { return Path() / ("vakdtm-" + std::to_string(geteuid())); }

 private:
  TestFolder folder_;
  std::string former_;
};

}  // namespace vak::test
