#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/frame/DtmPolyClipper3D.h"
#include "vakdtm/frame/ModelPolygonHandler.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestFolder;
using test::TestGrid;

PolyClipLine Rectangle(double x0, double y0, double x1, double y1) {
  PolyClipLine polygon;
  polygon.AddRing({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, false);
  return polygon;
}

/// An OpenGL context of this thread without a window: Mesa's on the processor, when there is no other.
class Context {
 public:
  Context() : display_(Display()) {
    constexpr std::array<EGLint, 3> kWanted = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    // Without the wish for OpenGL itself it would be OpenGL ES, which has no matrices.
    if (!eglBindAPI(EGL_OPENGL_API) || !eglChooseConfig(display_, kWanted.data(), &config, 1, &count)) {
      return;
    }
    context_ = eglCreateContext(display_, config, EGL_NO_CONTEXT, nullptr);
    current_ = eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_) == EGL_TRUE;
  }
  ~Context() {
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display_, context_);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  /// The display of the process. It is never given back: a driver that is unloaded takes the only way to its memory
  /// with it, which LeakSanitizer then calls lost.
  static EGLDisplay Display() {
    static const EGLDisplay display = [] {
      const EGLDisplay made = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
      return eglInitialize(made, nullptr, nullptr) ? made : EGL_NO_DISPLAY;
    }();
    return display;
  }

  bool IsCurrent() const { return current_; }

  /// A camera that looks down from above, turned by an angle, on a viewport of 200 x 100 pixels at (10, 20).
  static void LookDown(double degrees, double halfWidth) {
    glViewport(10, 20, 200, 100);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(-halfWidth, halfWidth, -halfWidth / 2, halfWidth / 2, -1000, 1000);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glRotated(degrees, 0, 0, 1);
  }

  /// A camera that sees along Y: heights go up the screen, 1 m to a pixel, with the origin in the middle.
  static void LookNorth() {
    glViewport(0, 0, 200, 200);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(-100, 100, -100, 100, -1000, 1000);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glRotated(-90, 1, 0, 0);
  }

 private:
  EGLDisplay display_;
  EGLContext context_ = EGL_NO_CONTEXT;
  bool current_ = false;
};

class ModelPolygonHandlerOnView : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ModelPolygonHandler::HasViews());
    ASSERT_TRUE(context_.IsCurrent());
  }

  Context context_;
};

TEST_F(ModelPolygonHandlerOnView, PointIsJudgedWhereItIsOnTheScreen) {
  Context::LookDown(0, 100);  // a pixel a metre, the origin in the middle of the viewport, at (110, 70)
  const ModelPolygonHandler handler(Rectangle(110, 70, 130, 80), Point(5000, 6000, 0));
  EXPECT_TRUE(handler.IsPointInPolygon(5010, 6005, 0));
  EXPECT_TRUE(handler.IsPointInPolygon(5010, 6005, -300));
  EXPECT_FALSE(handler.IsPointInPolygon(5010, 6011, 0));
  EXPECT_FALSE(handler.IsPointInPolygon(4999, 6005, 0));
  EXPECT_FALSE(handler.IsPointInPolygon(115, 75, 0));  // on the screen's own coordinates it would be in
}

TEST_F(ModelPolygonHandlerOnView, ViewIsTheOneOfTheMomentItWasMade) {
  Context::LookDown(90, 100);  // X goes up the screen
  const ModelPolygonHandler handler(Rectangle(100, 90, 120, 110), Point());
  Context::LookDown(0, 1);
  EXPECT_TRUE(handler.IsPointInPolygon(30, 0, 0));
  EXPECT_FALSE(handler.IsPointInPolygon(0, 30, 0));
}

TEST_F(ModelPolygonHandlerOnView, ProjectionIsRightToAThousandthOfAPixel) {
  Context::LookDown(0, 100);
  // OpenGL keeps matrices in single precision.
  for (const double x : {-73.2, -1.0, 0.0, 12.345678, 99.0}) {
    const double pixel = 110 + x;
    const ModelPolygonHandler right(Rectangle(pixel - 1e-3, 0, 1000, 1000), Point(500'000, 0));
    const ModelPolygonHandler left(Rectangle(pixel + 1e-3, 0, 1000, 1000), Point(500'000, 0));
    EXPECT_TRUE(right.IsPointInPolygon(500'000 + x, 0, 0)) << x;
    EXPECT_FALSE(left.IsPointInPolygon(500'000 + x, 0, 0)) << x;
  }
}

TEST_F(ModelPolygonHandlerOnView, ExcludePolygonsAreOnTheScreenToo) {
  const TestFolder folder;
  folder.Write("a.txt", "115 70\n120 70\n120 90\n115 90\n");
  Context::LookDown(0, 100);
  ModelPolygonHandler handler(Rectangle(110, 70, 130, 80), Point(5000, 6000, 0));
  handler.SetExcludePolygons({folder.WideFile("a.txt")});
  EXPECT_TRUE(handler.IsPointInPolygon(5001, 6005, 0));
  EXPECT_FALSE(handler.IsPointInPolygon(5007, 6005, 0));
}

TEST_F(ModelPolygonHandlerOnView, TestsNeedNoContextAndRunOnAnyThread) {
  Context::LookDown(0, 100);
  const ModelPolygonHandler handler(Rectangle(110, 70, 130, 80), Point(5000, 6000, 0));
  bool inside = false;
  bool outside = true;
  std::thread([&] {
    inside = handler.IsPointInPolygon(5010, 6005, 0);
    outside = handler.IsPointInPolygon(4999, 6005, 0);
  }).join();
  EXPECT_TRUE(inside);
  EXPECT_FALSE(outside);
}

/// Polygons over heights, seen from the south: pixel (100 + x, 100 + z).
using DtmPolyClipper3DOnView = ModelPolygonHandlerOnView;

double Weight(DtmPolyClipper3D& clipper, int row, int col) {
  double weight = 1;
  EXPECT_TRUE(clipper.ProcessCell(row, col, weight));
  return weight;
}

TEST_F(DtmPolyClipper3DOnView, CellIsJudgedAtItsHeight) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, -10));
  ASSERT_TRUE(grid.Set(0, 1, dVAL, -30));
  Context::LookNorth();
  DtmPolyClipper3D clipper(Rectangle(100, 80, 110, 95), Point(), dVAL);  // heights from -20 to -5
  ASSERT_TRUE(clipper.Init(grid.Access()));
  EXPECT_EQ(Weight(clipper, 0, 0), 1);
  EXPECT_EQ(Weight(clipper, 0, 1), 0);
}

TEST_F(DtmPolyClipper3DOnView, EmptyCellIsJudgedAtTheHeightOfTheOneBefore) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, -10));
  ASSERT_TRUE(grid.Set(0, 2, dVAL, -30));
  Context::LookNorth();
  DtmPolyClipper3D clipper(Rectangle(90, 80, 120, 95), Point(), dVAL);
  ASSERT_TRUE(clipper.Init(grid.Access()));
  EXPECT_EQ(Weight(clipper, 0, 1), 0);  // the first, at 0
  EXPECT_EQ(Weight(clipper, 0, 0), 1);
  EXPECT_EQ(Weight(clipper, 0, 1), 1);
  EXPECT_EQ(Weight(clipper, 0, 8), 1);  // of an area that isn't there
  EXPECT_EQ(Weight(clipper, 0, 2), 0);
  EXPECT_EQ(Weight(clipper, 0, 1), 0);
  ASSERT_TRUE(clipper.Init(grid.Access()));
  DtmPolyClipper3D seaLevel(Rectangle(90, 99, 120, 101), Point(), dVAL);
  ASSERT_TRUE(seaLevel.Init(grid.Access()));
  EXPECT_EQ(Weight(seaLevel, 0, 1), 1);
}

TEST_F(DtmPolyClipper3DOnView, UnknownBlockIsNoError) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, -10));
  Context::LookNorth();
  DtmPolyClipper3D clipper(Rectangle(90, 99, 120, 101), Point(), dMAX);
  ASSERT_TRUE(clipper.Init(grid.Access()));
  EXPECT_EQ(Weight(clipper, 0, 0), 1);
}

TEST_F(DtmPolyClipper3DOnView, CantBeCloned) {
  DtmPolyClipper3D clipper(Rectangle(0, 0, 1, 1), Point(), dVAL);
  EXPECT_EQ(clipper.Clone(), nullptr);
}

}  // namespace
}  // namespace vak
