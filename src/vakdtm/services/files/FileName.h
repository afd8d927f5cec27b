#pragma once

#include <string>
#include <system_error>

namespace vak {

/// A path in parts: folder, title, extension. `survey/2024.north.dtm` is the folder `survey/`, the title `2024.north`
/// and the extension `.dtm`.
///
/// The folder is all up to the last '/'. The extension begins at the last dot of the last component; a dot that begins
/// the component begins none (`.profile` is a title), nor does one in `.` and `..`. Nothing is looked up in the file
/// system.
class FileName {
 public:
  FileName() = default;
  explicit FileName(const std::wstring& path) { Set(path); }

  /// Takes all parts from a path.
  void Set(const std::wstring& path);

  /// Replaces the folder, with or without a '/' at its end; empty: no folder. Title and extension stay.
  void SetPath(const std::wstring& folder);

  /// Replaces the title.
  /// @param titleOnly  true: `name` is the title alone, dots and all, and the extension stays. False: `name` brings its
  /// extension, or none, with it.
  void SetName(const std::wstring& name, bool titleOnly);

  /// Replaces the extension, given with or without its dot; empty: none. L"bk1" makes `a.dtm` `a.bk1`, and `a` `a.bk1`.
  void SetExtension(const std::wstring& extension);

  /// @param withName       true: the whole path, whatever `withSeparator` says. False: the folder alone, empty when
  /// there is none.
  /// @param withSeparator  the folder ends in '/'. Without it the root is still "/".
  std::wstring Path(bool withName, bool withSeparator) const;

  /// The whole path, valid until the next change.
  const wchar_t* c_str() const { return path_.c_str(); }
  const std::wstring& operator*() const { return path_; }

 private:
  void Join() { path_ = folder_ + title_ + extension_; }

  std::wstring folder_;  // empty, or with its separator
  std::wstring title_;
  std::wstring extension_;  // empty, or with its dot
  std::wstring path_;       // the three joined
};

/// The title of a path, without folder and extension: what a model is called on screen.
std::wstring GetTitleFromPath(const std::wstring& path);

/// The one name under which a file is known: absolute, links followed as far as the path exists, no "." and ".." left.
/// Two names of one file give the same (hard links aside), whether the file is there yet or not.
/// @return empty for an empty name, and when the system can't say (a loop of links).
std::wstring GetCanonicalPath(const std::wstring& path);
/// @param error  why the system can't say (a folder that may not be entered, a loop of links); clear otherwise.
std::wstring GetCanonicalPath(const std::wstring& path, std::error_code& error);

}  // namespace vak
