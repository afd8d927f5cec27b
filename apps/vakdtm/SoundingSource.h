#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "vakdtm/intake/SoundingScanner.h"

#include "Command.h"

namespace vak {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<std::FILE, CloseFile>;

/// A text of soundings that a subcommand is to read, looked at but not yet used.
///
/// A file that can be opened again isn't kept open: there may be more of them than a process may have open.
struct SoundingSource {
  std::string name;               ///< for messages; of what isn't kept open, the path
  FilePointer kept;               ///< seekable, at its start; null for what isn't kept open
  bool parses = false;            ///< some line holds three numbers; of a dated text, the first one does
  bool dated = false;             ///< and that one holds a date behind them
  bool looksLikeDegrees = false;  ///< the first of those lines could all be longitude and latitude
  bool isEmpty = false;           ///< there isn't a single byte
  std::string firstLine;          ///< for the message that none does
  ScannedSounding first;          ///< what the first line that parses holds
  bool firstIsSounding = false;   ///< that is one that would be inserted, with its date
  std::string firstDateFault;     ///< of a dated text: why that line's date can't be taken; empty when it can
};

/// Opens a file, or standard input for "-", and looks for the first lines that parse. What can't be read twice
/// (standard input, a pipe) is copied to a temporary file first, which stays open. Prints why when it can't.
/// @param mayBeDated  whether the text is one for `DtmAsciiTimeImporter`.
/// @return false then, and when the user has stopped the copying.
[[nodiscard]] bool LookAtSource(const CommandContext& context, const std::string& path, bool mayBeDated,
                                SoundingSource& source);

/// Gives the file of a source that was looked at, once. @return null when it can't be opened any more.
FilePointer TakeFile(SoundingSource& source);

}  // namespace vak
