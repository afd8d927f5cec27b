// Reads the input as a file of a colour table, both as a settings text and as a palette, and asks what was read for
// colours and names. A table that was read has to save and read back to an equal one.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <limits>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/FileObject.h"

namespace {

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

/// A file in memory that has a name for as long as it is open.
class NamedMemory {
 public:
  NamedMemory() : descriptor_(memfd_create("table", 0)) { Expect(descriptor_ >= 0, "no file in memory"); }
  ~NamedMemory() { close(descriptor_); }
  NamedMemory(const NamedMemory&) = delete;
  NamedMemory& operator=(const NamedMemory&) = delete;

  void Put(std::string_view text) const {
    Expect(ftruncate(descriptor_, 0) == 0, "not emptied");
    const auto written = pwrite(descriptor_, text.data(), text.size(), 0);
    Expect(written == static_cast<ssize_t>(text.size()), "not written");
  }

  std::wstring Name() const { return L"/proc/self/fd/" + std::to_wstring(descriptor_); }

 private:
  int descriptor_;
};

void Ask(const vak::ColorTable& table) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double value : {0.0, -1.0, 1e300, -kInfinity, kInfinity, std::nan("")}) {
    Expect(table.GetColor(value) <= 0xFFFFFF, "a colour has three bytes");
    table.GetName(value);
  }
  Expect(table.Classes().size() <= vak::ColorTable::kMostClasses, "too many classes");
  for (const vak::ColorClass& each : table.Classes()) {
    Expect(table.GetColor(each.lower) == each.color, "a bound has the colour of its class");
    Expect(table.GetName(each.lower) == each.name, "a bound has the name of its class");
  }
}

void AskAndSave(const vak::ColorTable& table) {
  static const NamedMemory memory;
  Ask(table);
  vak::FileObject saved;
  Expect(table.FileSave(saved), "not saved");
  memory.Put(saved.GetText());
  vak::FileObject again;
  vak::ColorTable read;
  Expect(again.FileOpen(memory.Name()) && read.FileOpen(again), "what was saved isn't read");
  Expect(read == table, "what was saved reads back as another table");
}

}  // namespace

// The name is the fuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const NamedMemory memory;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  memory.Put(text);
  vak::FileObject file;
  vak::ColorTable table;
  if (!file.FileOpen(memory.Name())) return 0;
  Expect(table.FileOpen(file) == table.LastError().empty(), "a false has its reason");
  if (table.LastError().empty()) AskAndSave(table);
  vak::ColorTable palette;
  if (palette.ReadCpt(text)) AskAndSave(palette);
  return 0;
}
