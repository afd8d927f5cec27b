#pragma once

#include <memory>

namespace vak {

/// Listener that a `DtmAccess` tells of every change of a cell, so that views can redraw just what moved.
///
/// `flag` false: data was added (a sounding inserted, a new area). `flag` true: existing data changed or went away, so
/// that a drawing can't simply paint over it. An updater belongs to its access, hence to one thread.
class DtmUpdater {
 public:
  virtual ~DtmUpdater() = default;
  /// @return a new updater of the same kind; the caller owns it.
  virtual DtmUpdater* Clone() const = 0;
  virtual void UpdateCell(int row, int col, bool flag) = 0;
  /// @param row,col  the area's bottom-left cell.
  virtual void UpdateArea(int row, int col, bool flag) = 0;

 protected:
  DtmUpdater() = default;
  DtmUpdater(const DtmUpdater&) = default;
  DtmUpdater& operator=(const DtmUpdater&) = default;
};

}  // namespace vak
