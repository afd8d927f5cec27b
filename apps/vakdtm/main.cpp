#include "Command.h"

int main(int argc, char** argv) {
  return vak::RunCommandLine(argc, argv,
                             {vak::AddCreateCommand, vak::AddImportCommand, vak::AddInfoCommand, vak::AddCellsCommand,
                              vak::AddVerifyCommand, vak::AddSimulateCommand});
}
