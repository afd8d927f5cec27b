#include <cstdio>
#include <string>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"

namespace {

/// Stores two soundings in one cell. @return whether both were taken.
bool Store(vak::DtmUpdateFile* model) {
  vak::DtmAccess access(model);
  return access.InsertValue(0.25, 0.25, -12.0, 0, nullptr, nullptr, 0) &&
         access.InsertValue(0.75, 0.75, -13.0, 0, nullptr, nullptr, 0);
}

/// Prints what the cell holds. @return whether it could be read.
bool Print(vak::DtmUpdateFile* model) {
  vak::DtmAccess access(model);
  double mean = 0;
  double count = 0;
  if (!access.GetDoubleValue(0, 0, vak::dVAL, mean) || !access.GetDoubleValue(0, 0, vak::iNUM, count)) return false;
  std::printf("mean %g of %g\n", mean, count);
  return true;
}

}  // namespace

/// Makes a model of the name given, closes it, opens it again and prints one cell.
int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string file = argv[1];
  const std::wstring name(file.begin(), file.end());
  vak::DtmManager& manager = vak::DtmManager::GetDtmManager();

  const vak::DtmManager::create_params params{64, 1.0, {vak::dVAL, vak::iNUM}};
  vak::DtmUpdateFile* model = manager.OpenDtm(name, true, &params);
  if (model == nullptr) return 1;
  const bool stored = Store(model);
  model->Close();
  if (!stored) return 1;

  model = manager.OpenDtm(name, false, nullptr);
  if (model == nullptr) return 1;
  const bool printed = Print(model);
  model->Close();
  return printed ? 0 : 1;
}
