#pragma once

#include <string>
#include <utility>

#include "vakdtm/services/notify/Subscriber.h"

namespace vak {

/// What an application tells others of contours through `SubscriptionManager::Notify`: a text and an object, whatever
/// they have agreed on. The object isn't owned.
class DtmContourInfo : public NotificationInfo {
 public:
  DtmContourInfo(std::wstring text, void* object) : text_(std::move(text)), object_(object) {}

  const std::wstring& Text() const { return text_; }
  void* Object() const { return object_; }

 private:
  std::wstring text_;
  void* object_;
};

}  // namespace vak
