#include <gtest/gtest.h>

#include "vakdtm/frame/ModelPolygonHandler.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {
namespace {

// Here the handler is compiled as on a system that has no OpenGL.

TEST(ModelPolygonHandlerPlane, WithoutOpenGLTheViewFormJudgesInThePlane) {
  ASSERT_FALSE(ModelPolygonHandler::HasViews());
  PolyClipLine polygon;
  polygon.AddRing({{10, 10}, {20, 10}, {20, 20}, {10, 20}}, false);
  const ModelPolygonHandler handler(polygon, Point(1000, 1000, 0));
  EXPECT_TRUE(handler.IsPointInPolygon(15, 15, 0));
  EXPECT_FALSE(handler.IsPointInPolygon(25, 15, 0));
}

}  // namespace
}  // namespace vak
