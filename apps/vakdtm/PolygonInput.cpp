#include "PolygonInput.h"

#include <cctype>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// A place in a file and what is to be said about it.
struct Finding {
  std::string where;
  std::string what;
};

/// Takes "line 12: ..." apart, so that the place stands where places stand: "harbour.txt:12".
Finding Located(const std::string& path, std::string text) {
  constexpr std::string_view kLine = "line ";
  const std::size_t colon = text.find(": ");
  if (!text.starts_with(kLine) || colon == std::string::npos) return {path, std::move(text)};
  const std::string number = text.substr(kLine.size(), colon - kLine.size());
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return {path, std::move(text)};
  return {path + ":" + number, text.substr(colon + 2)};
}

const char* RemedyOf(PolyClipFault::Kind kind) {
  switch (kind) {
    case PolyClipFault::Kind::kNotClosed:
      return "repeat its first vertex at its end";
    case PolyClipFault::Kind::kTooFewPoints:
      return "a ring needs three different points";
    case PolyClipFault::Kind::kSelfIntersecting:
      return "put its vertices in order, or part it into rings";
    case PolyClipFault::Kind::kCrossing:
      return "rings of one polygon may touch, but not cross";
    case PolyClipFault::Kind::kHoleOutside:
    case PolyClipFault::Kind::kHoleInHole:
      return "make it a polygon of its own, or leave it out";
    default:
      return "check its coordinates";
  }
}

void TellUnreadable(const CommandContext& context, const std::string& path) {
  std::error_code error;
  const auto type = std::filesystem::status(path, error).type();
  if (type == std::filesystem::file_type::not_found || path.empty()) {
    context.Fail(path.empty() ? "''" : path, "no such file", "check the name of the polygon");
  } else if (type == std::filesystem::file_type::directory) {
    context.Fail(path, "is a folder", "name a file with a polygon");
  } else if (type != std::filesystem::file_type::regular && type != std::filesystem::file_type::none) {
    context.Fail(path, "is not a regular file", "name a file with a polygon");
  } else {
    context.Fail(path, "the polygon cannot be read", "check the file and its permissions");
  }
}

/// With a byte order mark, or with a first character that is one of UTF-8 and a NUL.
bool IsUtf16(std::string_view text) {
  if (text.size() < 2) return false;
  return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") || (text[0] == '\0') != (text[1] == '\0');
}

std::string Text(double value) {
  std::string text;
  AppendNumber(text, value);
  return text;
}

bool TellOutside(const CommandContext& context, const std::string& name, bool hasAreas, const Page& extents) {
  if (!hasAreas) {
    context.Fail(name, "lies outside the model, which has no cells", "import soundings first");
    return false;
  }
  context.Fail(name,
               "lies outside the model, whose areas reach from x " + Text(extents.left()) + " to " +
                   Text(extents.right()) + " and y " + Text(extents.bottom()) + " to " + Text(extents.top()),
               "check its coordinates");
  return false;
}

}  // namespace

bool FindExtents(DtmFile& model, Page& extents) {
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  if (!model.GetAreaExtents(x0, y0, x1, y1)) return false;
  extents = Page(x0, y0, x1, y1);
  return true;
}

bool LoadPolygon(const CommandContext& context, const std::string& path, PolyClipLine& polygon) {
  SmartFileImpl file;
  if (path.empty() || !file.FileOpen(kPolygonFile, FromUtf8(path))) {
    TellUnreadable(context, path);
    return false;
  }
  std::wstring error;
  if (IsUtf16(file.GetFileObject().GetContent())) {
    context.Fail(path, "the polygon is written in UTF-16", "save it as UTF-8");
    return false;
  }
  if (!polygon.FileOpen(file.GetFileObject(), &error)) {
    const Finding finding = Located(path, ToUtf8(error));
    context.Fail(finding.where, finding.what, "give a GeoJSON polygon, or a text with a vertex x,y a line");
    return false;
  }
  PolyClipFault fault;
  if (!polygon.FindFault(fault)) return true;
  const Finding finding = Located(path, ToUtf8(fault.Text()));
  const bool located = finding.where != path;
  context.Fail(finding.where, (located ? "the ring " : "") + finding.what, RemedyOf(fault.kind));
  return false;
}

void WarnOfOverlap(const CommandContext& context, const std::string& path, const PolyClipLine& polygon) {
  PolyClipFault overlap;
  if (!polygon.FindOverlap(overlap)) return;
  const Finding finding = Located(path, ToUtf8(overlap.Text()));
  const bool located = finding.where != path;
  context.Warn(finding.where, (located ? "the ring " : "") + finding.what + ": what both hold counts twice",
               "merge them if it should count once");
}

bool MeetsModel(const CommandContext& context, const std::string& path, const PolyClipLine& polygon, DtmFile& model) {
  Page extents;
  const bool hasAreas = FindExtents(model, extents);
  PolyClipLine cut;
  return (hasAreas && polygon.ClipToPage(extents, cut)) || TellOutside(context, path, hasAreas, extents);
}

bool MeetsModel(const CommandContext& context, const std::string& name, const Page& rect, DtmFile& model) {
  Page extents;
  const bool hasAreas = FindExtents(model, extents);
  Page cut = rect;
  return (hasAreas && extents.ClipRect(cut)) || TellOutside(context, name, hasAreas, extents);
}

std::wstring PolygonName(const std::string& path) { return FromUtf8(std::filesystem::path(path).filename().native()); }

}  // namespace vak
