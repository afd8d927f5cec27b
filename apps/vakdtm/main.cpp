#include <fcntl.h>

#include "Command.h"

namespace {

/// Occupies standard descriptors that the caller has closed: a model opened next would take their number, and the next
/// message would be written into it. Reading and writing there fails as before.
void OccupyClosedDescriptors() {
  for (const int descriptor : {0, 1, 2}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free number is given out, which is this one; it stays open to the end.
    if (open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY) < 0) return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyClosedDescriptors();
  return vak::RunCommandLine(
      argc, argv,
      {vak::AddCreateCommand, vak::AddImportCommand, vak::AddInfoCommand, vak::AddStatsCommand, vak::AddCellsCommand,
       vak::AddExportCommand, vak::AddContourCommand, vak::AddOutlineCommand, vak::AddFillCommand,
       vak::AddRenderCommand, vak::AddVerifyCommand, vak::AddWatchCommand, vak::AddSimulateCommand});
}
