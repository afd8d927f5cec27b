#include "vakdtm/frame/ModelPolygonHandler.h"

#include <utility>

#ifdef VAKDTM_WITH_OPENGL
#include <GL/gl.h>
#include <GL/glu.h>
#endif

#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"

namespace vak {

#ifdef VAKDTM_WITH_OPENGL

bool ModelPolygonHandler::HasViews() { return true; }

ModelPolygonHandler::ModelPolygonHandler(const PolyClipLine& polygon, const Point& origin)
    : origin_(origin), useView_(true), hasPolygon_(true) {
  polygon_ = polygon;
  glGetDoublev(GL_MODELVIEW_MATRIX, modelView_.data());
  glGetDoublev(GL_PROJECTION_MATRIX, projection_.data());
  glGetIntegerv(GL_VIEWPORT, viewport_.data());
}

Point ModelPolygonHandler::OnScreen(const Point& point) const {
  const Point drawn = point - origin_;
  Point screen = drawn;
  gluProject(drawn.x, drawn.y, drawn.z, modelView_.data(), projection_.data(), viewport_.data(), &screen.x, &screen.y,
             &screen.z);
  return screen;
}

#else

bool ModelPolygonHandler::HasViews() { return false; }

ModelPolygonHandler::ModelPolygonHandler(const PolyClipLine& polygon, const Point& /*origin*/)
    : ModelPolygonHandler(&polygon) {}

Point ModelPolygonHandler::OnScreen(const Point& point) const { return point - origin_; }

#endif

ModelPolygonHandler::ModelPolygonHandler(const PolyClipLine* polygon) : hasPolygon_(polygon != nullptr) {
  if (polygon != nullptr) polygon_ = *polygon;
}

void ModelPolygonHandler::SetExcludePolygons(const std::vector<std::wstring>& paths) {
  exclude_.clear();
  SmartFileImpl file;
  for (const std::wstring& path : paths) {
    PolyClipLine polygon;
    if (file.FileOpen(kPolygonFile, path) && polygon.FileOpen(file.GetFileObject()))
      exclude_.push_back(std::move(polygon));
  }
}

bool ModelPolygonHandler::IsPointInPolygon(double x, double y, double z) const {
  Point point(x, y, z);
  if (hasPolygon_) {
    if (useView_) point = OnScreen(point);
    if (!polygon_.IsEmpty() && !polygon_.IsPointInPoly(point)) return false;
  }
  for (const PolyClipLine& polygon : exclude_) {
    if (polygon.IsPointInPoly(point)) return false;
  }
  return true;
}

}  // namespace vak
