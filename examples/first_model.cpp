// A first grid model: made, sounded into, read back, and opened again by somebody who only looks.
//
//   first_model FOLDER      the model is FOLDER/first.dtm; one that is there is made anew
#include <cstdio>
#include <filesystem>
#include <string>

#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"

namespace {

/// Heights in metres, upwards positive: soundings of two cells of half a metre.
struct Sounding {
  double x, y, z;
};
constexpr Sounding kSoundings[] = {
    {500000.10, 5800000.20, -12.31}, {500000.30, 5800000.40, -12.27}, {500000.25, 5800000.05, -12.41},
    {500000.60, 5800000.20, -12.50}, {500000.90, 5800000.30, -12.44},
};

/// Prints the statistics of the cell that holds a point. @return whether there are any.
bool PrintCell(vak::DtmUpdateFile* model, double x, double y) {
  vak::DtmAccess access(model);
  int row = 0;
  int col = 0;
  model->CalcRowCol(x, y, row, col);
  double count = 0;
  double mean = 0;
  double deviation = 0;
  double deepest = 0;
  // True says that the model records the kind, not that the cell has a value.
  if (!access.GetDoubleValue(row, col, vak::iNUM, count) || vak::IsEmptyValue(count)) return false;
  if (!access.GetDoubleValue(row, col, vak::dVAL, mean) || !access.GetDoubleValue(row, col, vak::dSDV, deviation) ||
      !access.GetDoubleValue(row, col, vak::dMIN, deepest)) {
    return false;
  }
  std::printf("row %d, column %d: %.0f soundings, mean %.3f m, deviation %.3f m, deepest %.2f m\n", row, col, count,
              mean, deviation, deepest);
  return true;
}

/// Makes the model and puts the soundings in. @return whether all of them are on the disk.
bool Make(const std::wstring& name) {
  // Areas of 64 x 64 cells of 0.5 m, and the kinds of value that each cell is to have.
  const vak::DtmManager::create_params params{64, 0.5, {vak::iNUM, vak::dVAL, vak::dSDV, vak::dMIN, vak::dMAX}};
  vak::DtmUpdateFile* model = vak::DtmManager::GetDtmManager().OpenDtm(name, true, &params);
  if (model == nullptr) return false;

  bool stored = true;
  {
    vak::DtmAccess access(model);  // one for each thread; the model itself is shared
    for (const Sounding& s : kSoundings) {
      stored = access.InsertValue(s.x, s.y, s.z, /*time=*/1763700000, nullptr, nullptr, 0) && stored;
    }
    stored = PrintCell(model, 500000.25, 5800000.25) && stored;
  }
  stored = model->SyncWrite() && stored;  // cells and index are on the disk when this answers true
  model->Close();                         // the last one to close it deletes the object
  return stored;
}

/// Opens the model without any means to change it, and prints what it holds. @return whether that worked.
bool Look(const std::wstring& name) {
  vak::DtmUpdateFile* model = vak::DtmManager::GetDtmManager().OpenDtmUntouched(name);
  if (model == nullptr) return false;
  std::printf("%d area of %d x %d cells of %g m\n", model->NumAreas(), model->AreaSize(), model->AreaSize(),
              model->CellSize());
  const bool printed = PrintCell(model, 500000.25, 5800000.25) && PrintCell(model, 500000.75, 5800000.25);
  model->Close();
  return printed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("first_model FOLDER\n", stderr);
    return 2;
  }
  const std::wstring name = vak::FromUtf8((std::filesystem::path(argv[1]) / "first.dtm").string());
  if (Make(name) && Look(name)) return 0;
  std::fputs("first_model: something could not be stored or read\n", stderr);
  return 1;
}
