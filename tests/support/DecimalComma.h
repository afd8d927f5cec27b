#pragma once

#include <cstdio>
#include <cstdlib>
#include <locale.h>
#include <string>

#include "support/TestFolder.h"

namespace vak::test {

/// The process writes and reads numbers with a decimal comma for a scope. Such a locale is made for it, since a machine
/// may have none.
class DecimalComma {
 public:
  DecimalComma() : previous_(setlocale(LC_NUMERIC, nullptr)) {
    std::string map = "<escape_char> /\n<code_set_name> PLAIN\n<mb_cur_min> 1\n<mb_cur_max> 1\nCHARMAP\n";
    for (unsigned code = 0; code < 128; ++code) {
      char entry[40];
      std::snprintf(entry, sizeof entry, "<U%04X> /x%02x any\n", code, code);
      map += entry;
    }
    const std::string mapFile = folder_.Write("plain.map", map + "END CHARMAP\n");
    const std::string source = folder_.Write(
        "comma.src", "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
    const std::string command = "PATH=$PATH:/usr/bin localedef -c -f " + mapFile + " -i " + source + " " +
                                folder_.File("comma") + " >" + folder_.File("log") + " 2>&1";
    // It warns of the categories that aren't given, and its status says so; whether the locale is there shows below.
    [[maybe_unused]] const int status = std::system(command.c_str());
    setenv("LOCPATH", folder_.Path().c_str(), 1);
    set_ = setlocale(LC_NUMERIC, "comma") != nullptr;
  }

  ~DecimalComma() {
    setlocale(LC_NUMERIC, previous_.c_str());
    unsetenv("LOCPATH");
  }

  DecimalComma(const DecimalComma&) = delete;
  DecimalComma& operator=(const DecimalComma&) = delete;

  bool Set() const { return set_; }

 private:
  TestFolder folder_;
  std::string previous_;
  bool set_ = false;
};

}  // namespace vak::test
