#include "vakdtm/services/jobs/MessageSink.h"

#include <memory>
#include <string>
#include <utility>

#include "vakdtm/services/jobs/Installed.h"

namespace vak {
namespace {

Installed<MessageSink>& MessageSinks() {
  static Installed<MessageSink> sink;
  return sink;
}

}  // namespace

std::shared_ptr<MessageSink> InstallMessageSink(std::shared_ptr<MessageSink> sink) {
  return MessageSinks().Exchange(std::move(sink));
}

void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& text) {
  if (const auto sink = MessageSinks().Get()) sink->ShowMessage(icon, title, text);
}

void ShowMessage(MessageIcon icon, const std::wstring& text) { ShowMessage(icon, {}, text); }

}  // namespace vak
