#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vak {

/// The kinds of files that the library looks for, by the numbers that its users know.
enum FileKind : unsigned {
  kColorTableFile = 25,
  kGridModelFile = 26,
  kFilterFile = 27,
  kPolygonFile = 31,
  kImageFile = 74
};

class ProjectDefinition;

/// Where files are looked for, and what the whole process knows of its project.
///
/// One object a process; any thread may call any operation.
class DataSearch {
 public:
  static DataSearch& GetDataSearch();

  DataSearch(const DataSearch&) = delete;
  DataSearch& operator=(const DataSearch&) = delete;

  /// Completes a file's name to an absolute path.
  ///
  /// A name with a folder at its root is taken as it stands. Any other is looked for below the current folder, then in
  /// the folders of its kind in the order in which they were added; one that is nowhere is a file yet to be made, and
  /// goes below the current folder.
  /// @param path  gets the path.
  /// @return false, with `path` untouched, when it is empty or the system can't tell the current folder.
  bool GetFullPath(unsigned kind, std::wstring& path) const;

  /// Adds a folder where files of a kind are looked for.
  void AddFolder(unsigned kind, const std::wstring& folder);

  /// Forgets all folders of a kind.
  void ClearFolders(unsigned kind);

  /// The definition of the project that is open, never null; see `GetCurrentProjectDefinition`.
  std::shared_ptr<const ProjectDefinition> GetProjectDefinition() const;

 private:
  DataSearch() = default;

  mutable std::mutex mutex_;
  std::map<unsigned, std::vector<std::wstring>> folders_;  // guarded by mutex_
};

}  // namespace vak
