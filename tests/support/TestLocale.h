#pragma once

#include <string>
#include <vector>

#include "support/TestFolder.h"

namespace vak::test {

/// A locale of this test alone, compiled into a folder of its own from the system's sources of locales, whatever
/// locales are installed. Takes about a second.
///
/// Throws when it can't be made.
class TestLocale {
 public:
  /// @param name  as the sources are called: "de_DE".
  explicit TestLocale(const std::string& name);

  /// A locale of which only the decimal mark is its own; the others are as in "C". Takes a third of that.
  /// @param decimalPoint  as sources of locales write it: "," or "<U066B>".
  static TestLocale OfDecimalPoint(const std::string& decimalPoint);

  /// A command line that runs `words` as a user of this locale.
  std::vector<std::string> Line(std::vector<std::string> words) const;

 private:
  TestLocale(const std::string& name, const std::string& source, bool force);

  TestFolder folder_;
  std::string name_;
};

}  // namespace vak::test
