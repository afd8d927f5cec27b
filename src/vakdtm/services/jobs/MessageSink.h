#pragma once

#include <memory>
#include <string>

namespace vak {

/// What kind of a message it is.
enum class MessageIcon { kInformation, kWarning, kError };

/// Where texts for the user go: the command prints them, a viewer shows a box, a test collects them.
class MessageSink {
 public:
  virtual ~MessageSink() = default;

  /// Called from any thread, several at a time.
  /// @param title  what a box would have as its title; empty for a message that speaks for itself.
  /// @param text   may have several lines.
  virtual void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& text) = 0;
};

/// Installs the one sink of the process, or none (null). A sink that is being called lives on until that call has
/// ended.
/// @return the one before.
std::shared_ptr<MessageSink> InstallMessageSink(std::shared_ptr<MessageSink> sink);

/// Hands a text to the installed sink; without one it is dropped. No lock is held during the call.
void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& text);
/// The same without a title.
void ShowMessage(MessageIcon icon, const std::wstring& text);

}  // namespace vak
