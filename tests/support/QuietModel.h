#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>

#include "vakdtm/services/platform/Platform.h"

#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {

/// A model of 0.5 m cells in areas of 8 that has just made an announcement, so that what is handed to it is gathered
/// there, under a counter of milliseconds that moves only when told to.
struct QuietModel {
  explicit QuietModel(std::uint32_t milliseconds = 1000000) : scope(clock) {
    clock.SetMilliseconds(milliseconds);
    const DtmManager::create_params params{8, 0.5, {dVAL, iNUM}};
    model = CreateShared(folder.WideFile("a.dtm"), params);
    if (!model) throw std::runtime_error("no model");
    listener = std::make_unique<RectListener>(*model);
    Announce();
  }

  /// Announces what is gathered, or something of no interest, so that nothing is announced for the next 125 ms.
  void Announce() {
    model->AddUpdateRect({0, 0, 1, 1}, false);
    model->FlushUpdateRect();
    listener->heard.clear();
  }
  bool HasRect() const {
    Page rect;
    bool flag = false;
    return model->GetUpdateRect(rect, flag);
  }
  void Expect(double left, double bottom, double right, double top, bool flag) const {
    Page rect;
    bool found = !flag;
    ASSERT_TRUE(model->GetUpdateRect(rect, found));
    EXPECT_EQ(rect.left(), left);
    EXPECT_EQ(rect.bottom(), bottom);
    EXPECT_EQ(rect.right(), right);
    EXPECT_EQ(rect.top(), top);
    EXPECT_EQ(found, flag);
  }

  TestFolder folder;
  ManualClock clock;
  ScopedClock scope;
  SharedModel model;
  std::unique_ptr<RectListener> listener;
};

}  // namespace vak::test
