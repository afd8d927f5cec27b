#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

namespace vak {
namespace {

TEST(VakGeoCoordSysThreadTest, ThreadsConvertBySystemsThatTheyShare) {
  std::vector<std::shared_ptr<VakGeoCoordSysBase>> systems;
  // More than a thread keeps the ways of.
  for (int zone = 0; zone < 10; ++zone) {
    systems.push_back(VakGeoCoordSysBase::FromText(L"EPSG:326" + std::to_wstring(31 + zone)));
    ASSERT_NE(systems.back(), nullptr);
  }
  std::atomic<int> good{0};
  const auto work = [&](std::size_t first) {
    for (std::size_t i = 0; i < 2 * systems.size(); ++i) {
      const std::size_t zone = (first + i) % systems.size();
      double latitude = 0;
      double longitude = 0;
      double height = 0;
      const bool done = systems[zone]->ConvertToWGS84(500000, 5800000, 1, latitude, longitude, height, 0);
      if (done && std::fabs(longitude - (3.0 + 6.0 * static_cast<double>(zone))) < 1e-9) ++good;
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < 4; ++i) threads.emplace_back(work, i * 3);
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(good, 80);
}

}  // namespace
}  // namespace vak
