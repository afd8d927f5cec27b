#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/services/geometry/GtlExtents3D.h"
#include "vakdtm/services/geometry/GtlPoint.h"

namespace vak::GTL {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(GtlPoint2D, EqualsExactlyWhatHasTheSameCoordinates) {
  EXPECT_EQ(Point2D<double>(1, 2), Point2D<double>(1, 2));
  EXPECT_EQ(Point2D<double>(0.0, 2), Point2D<double>(-0.0, 2));
  EXPECT_FALSE(Point2D<double>(1, 2) == Point2D<double>(1, 2 + 4e-16));
  EXPECT_FALSE(Point2D<double>(kNaN, 2) == Point2D<double>(kNaN, 2));
}

TEST(GtlPoint3D, EqualsByItsPositionAndNotByItsFourthNumber) {
  EXPECT_EQ(Point3D<double>(1, 2, 3, 4), Point3D<double>(1, 2, 3, 5));
  EXPECT_FALSE(Point3D<double>(1, 2, 3) == Point3D<double>(1, 2, 4));
  EXPECT_FALSE(Point3D<double>(1, 2, kNaN) == Point3D<double>(1, 2, kNaN));
  EXPECT_EQ(Point3D<double>(Point2D<double>(1, 2)), Point3D<double>(1, 2, 0));
}

TEST(GtlExtents3D, IsValidFromTheFirstPointOnAndNotAfterReset) {
  Extents3D<double> extents;
  EXPECT_FALSE(extents.IsValid());
  extents.Update(Point3D<double>(1, 2, 3));
  EXPECT_TRUE(extents.IsValid());
  EXPECT_EQ(extents.MinX(), 1);
  EXPECT_EQ(extents.MaxX(), 1);
  EXPECT_EQ(extents.MinZ(), 3);
  extents.Reset();
  EXPECT_FALSE(extents.IsValid());
  EXPECT_EQ(extents, Extents3D<double>());
}

TEST(GtlExtents3D, HoldsAllItWasShown) {
  Extents3D<double> extents;
  extents.Update(Point3D<double>(1, 2, 3));
  extents.Update(Point3D<double>(-1, 5, -7));
  Extents3D<double> other;
  extents.Update(other);
  EXPECT_EQ(extents.MaxY(), 5);
  other.Update(Point3D<double>(9, 4, 4));
  extents.Update(other);
  EXPECT_EQ(extents.MinX(), -1);
  EXPECT_EQ(extents.MaxX(), 9);
  EXPECT_EQ(extents.MinY(), 2);
  EXPECT_EQ(extents.MaxY(), 5);
  EXPECT_EQ(extents.MinZ(), -7);
  EXPECT_EQ(extents.MaxZ(), 4);
}

TEST(GtlExtents3D, LeavesAnAxisAloneThatAPointHasNoNumberFor) {
  Extents3D<double> extents;
  extents.Update(Point3D<double>(1, 2, kNaN));
  EXPECT_TRUE(extents.IsValid());
  EXPECT_GT(extents.MinZ(), extents.MaxZ());
  extents.Update(Point3D<double>(kNaN, 4, 3));
  EXPECT_EQ(extents.MaxX(), 1);
  EXPECT_EQ(extents.MaxY(), 4);
  EXPECT_EQ(extents.MinZ(), 3);
}

}  // namespace
}  // namespace vak::GTL
