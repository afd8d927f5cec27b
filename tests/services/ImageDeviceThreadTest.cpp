#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/services/device/PageDevice.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

void Draw(CDC& device, int turn) {
  for (int i = 0; i < 60; ++i) {
    device.FillSolidRect({i, i, i + 20, i + 20}, static_cast<Color>(i) * 4);
    device.DrawLine(i, 0, 100 - i, 100);
    VakFont font;
    font.height = 8 + i % 7;
    font.weight = i % 2 == 0 ? VakFont::kNormal : VakFont::kBold;
    font.escapement = turn * i;
    device.SelectFont(font);
    device.TextOut(50, 50, L"-12." + std::to_wstring(i));
  }
}

TEST(ImageDeviceThreadTest, SeveralThreadsDrawOnDevicesOfTheirOwn) {
  const test::TestFolder folder;
  constexpr int kThreads = 4;
  std::atomic<int> done = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&folder, &done, i] {
      const std::string name = std::to_string(i);
      for (int round = 0; round < 3; ++round) {
        ImageDevice image;
        if (!image.Create(100, 100)) return;
        Draw(image, 0);
        PageDevice page;
        const auto format = i % 2 == 0 ? PageDevice::Format::kPdf : PageDevice::Format::kSvg;
        if (!page.Create(folder.WideFile(name + ".page"), format, 100, 100)) return;
        Draw(page, 100);
        page.DrawImage({0, 0, 50, 50}, image);
        if (!page.Finish() || !image.SavePng(folder.WideFile(name + ".png"))) return;
      }
      ++done;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(done, kThreads);
  for (int i = 1; i < kThreads; ++i) {
    EXPECT_EQ(folder.Content("0.png"), folder.Content(std::to_string(i) + ".png"));
  }
}

TEST(ImageDeviceThreadTest, ADeviceGoesFromOneThreadToAnother) {
  ImageDevice image;
  TextExtent first;
  TextExtent second;
  std::thread([&] {
    EXPECT_TRUE(image.Create(100, 100));
    Draw(image, 0);
    first = image.GetTextExtent(L"-12.34");
  }).join();
  std::thread([&] {
    Draw(image, 0);
    second = image.GetTextExtent(L"-12.34");
  }).join();
  EXPECT_GT(first.width, 0);
  EXPECT_EQ(first, second);
  EXPECT_EQ(image.GetTextExtent(L"-12.34"), first);
}

}  // namespace
}  // namespace vak
