#pragma once

#include <functional>
#include <string>
#include <utility>

#include "vakdtm/services/notify/Subscriber.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak::test {

/// Calls a function at each announcement of a rectangle.
class AtEachSounding final : public Subscriber {
 public:
  AtEachSounding(DtmUpdateFile& model, std::function<void(int)> then) : then_(std::move(then)) {
    subscription_.SetSubscriber(this, false);
    subscription_.Subscribe(model.FileName());
  }
  void OnNotify(int, const std::wstring&, const NotificationInfo*) override { then_(++count_); }

 private:
  std::function<void(int)> then_;
  int count_ = 0;
  Subscription subscription_{1};
};

}  // namespace vak::test
