#pragma once

#include <string>
#include <vector>

#include "vakdtm/export/PhiColorTable.h"
#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/files/OutputFile.h"
#include "vakdtm/services/text/LocaleSeparators.h"

namespace vak {

class VakFormatter;

/// Writes the cells that it is shown as a delimited list: x, y and a column for each kind, in the project's units and
/// in the user's locale.
///
/// A line for each cell that has a value in one of the kinds, in the order of the walk; a kind without a value leaves
/// its column empty. With more than one kind a line of headings comes first. A number whose text holds the list
/// separator as the formatter wrote it, with a point, is enclosed in double quotes; names stay as they are. The file is
/// UTF-8.
///
/// For the kind `cPHT` a column TYPE follows with the name of the type of bottom. In a line without a `cPHT` value that
/// column falls away, and those behind it move up.
///
/// The file is opened by the constructor; that it couldn't be shows in `Init`. A line that can't be written ends the
/// walk with false. Text goes to the disk in pieces: ask `Close` whether all of it has arrived. A second walk writes a
/// second line of headings. Can't be run in parallel.
class DtmAsciiExporter : public DtmProcessor {
 public:
  /// @param blockId  the first kind.
  /// @param path     created, or emptied.
  DtmAsciiExporter(int blockId, const wchar_t* path);

  /// Appends a kind. One that the table of kinds doesn't hold has no heading.
  void AddExtraBlockId(int id) { blockIds_.push_back(id); }

  /// Heights change sign, so that depths are positive; their headings begin with "(-)". Other kinds stay as they are.
  void SetInvert(bool invert) { invert_ = invert; }

  /// Two more columns in front of `dMIN` and of `dMAX`, where they are among the kinds: where in the cell that height
  /// was measured, empty where that isn't known.
  void SetAddMinMaxPos(bool add) { addMinMaxPos_ = add; }

  /// Values and positions are those of the upper right corner of each cell, where grids that count from 0 in whole
  /// cells have their nodes: interpolated between the four cells around it, all of which must have a value. Where in
  /// the cell an extreme was measured isn't affected.
  void SetResampleToCenterCellZero(bool resample) { resample_ = resample; }

  bool Init(DtmAccess& access) override;
  bool ProcessCell(int row, int col, double& area) override;

  /// Ends the file, once. @return whether all that was ever written has arrived. Nothing can be written afterwards.
  bool Close() { return file_.Close(); }

 protected:
  /// A number's text as the locale has it: in double quotes when it holds the list separator as it comes, and then with
  /// the locale's decimal mark for every point.
  std::wstring AdjustToLocalDecimal(std::wstring text) const;

  DtmAccess& Access() const { return *access_; }
  int FirstBlockId() const { return blockIds_.front(); }

  /// Writes the text and a line end. @return false when that failed, or something did before.
  bool WriteLine(const std::wstring& line);

 private:
  struct Position {
    double x, y;
  };

  std::wstring Header() const;
  /// Appends the two columns of the position of an extreme, each with its separator.
  void AppendPosition(std::wstring& line, const VakFormatter& formatter, int row, int col, int xId, int yId,
                      Position centre) const;
  /// @return whether there is a value.
  bool ReadValue(int row, int col, int id, Position at, double& value) const;

  std::vector<int> blockIds_;  // never empty
  OutputFile file_;
  DtmAccess* access_ = nullptr;
  bool invert_ = false;
  bool addMinMaxPos_ = false;
  bool resample_ = false;
  LocaleSeparators separators_;
  PhiColorTable phi_;
};

}  // namespace vak
