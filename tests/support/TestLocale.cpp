#include "support/TestLocale.h"

#include <stdexcept>

#include "support/RunCommand.h"

namespace vak::test {
namespace {

std::string SourceWith(const std::string& decimalPoint) {
  return "comment_char %\nescape_char /\nLC_CTYPE\ncopy \"POSIX\"\nEND LC_CTYPE\nLC_NUMERIC\ndecimal_point \"" +
         decimalPoint + "\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n";
}

}  // namespace

TestLocale::TestLocale(const std::string& name) : TestLocale(name, {}, false) {}

TestLocale TestLocale::OfDecimalPoint(const std::string& decimalPoint) {
  return {"test_TEST", SourceWith(decimalPoint), true};
}

TestLocale::TestLocale(const std::string& name, const std::string& source, bool force) : name_(name + ".UTF-8") {
  const std::string from = source.empty() ? name : folder_.Write("source", source);
  std::vector<std::string> words = {"/usr/bin/localedef", "--no-archive", "-i", from, "-f", "UTF-8",
                                    folder_.File(name_)};
  if (force) words.insert(words.begin() + 1, "-c");  // categories that aren't in the source
  const CommandResult made = RunCommand(words).Wait();
  // The C library's newlocale loses the list of folders that it makes of LOCPATH, and nothing else is to be forgiven.
  folder_.Write("leaks", "leak:argz_add_sep\n");
  // 1: done, with warnings.
  if (made.status != 0 && !(force && made.status == 1))
    throw std::runtime_error("no locale " + name_ + ": " + made.err);
}

std::vector<std::string> TestLocale::Line(std::vector<std::string> words) const {
  words.insert(words.begin(),
               {"/usr/bin/env", "LSAN_OPTIONS=print_suppressions=0:suppressions=" + folder_.File("leaks"),
                "LOCPATH=" + folder_.Path().string(), "LC_ALL=" + name_});
  return words;
}

}  // namespace vak::test
