#pragma once

#include <memory>
#include <string>

namespace vak {

class ColorTable;
class SmartFileImpl;

/// The colour table that names the types of the bottom, by their phi value.
///
/// Found by its name "phi[bottom-type]" among the suite's colour tables. Where there is no such file, or it can't be
/// read, the table is empty and every name is too; nothing is said about it.
class PhiColorTable {
 public:
  /// Loads the table.
  PhiColorTable();
  ~PhiColorTable();

  PhiColorTable(const PhiColorTable&) = delete;
  PhiColorTable& operator=(const PhiColorTable&) = delete;

  /// The name of the class that holds a value; empty when none does.
  std::wstring GetName(double value) const;

 private:
  bool Load();

  std::unique_ptr<ColorTable> table_;
  bool loaded_ = false;  // nothing reads it: a table that isn't there has no names
  std::unique_ptr<SmartFileImpl> file_;
};

}  // namespace vak
