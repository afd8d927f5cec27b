#pragma once

#include <string>

namespace vak {

/// The message log that an application may give to a job that reports: it gets the report line by line.
///
/// Never owned by the one that writes to it. Called on the thread that reports, one line at a time.
class BaseVAKMessage {
 public:
  virtual ~BaseVAKMessage() = default;

  /// Takes one line, without a line end.
  ///
  /// What every report of the library passes besides the text is fixed: 1, the text, 1, empty, true, 0.
  /// @param kind      1: for information.
  /// @param level     1: the ordinary level.
  /// @param source    who says it; empty: the library.
  /// @param showTime  the log may put the time before the line.
  /// @param code      0: no number that stands for the message.
  virtual void LogMessage(int kind, const std::wstring& text, int level, const std::wstring& source, bool showTime,
                          int code) = 0;
};

}  // namespace vak
