#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vak {

/// A text file of settings, and the file itself for those who read another form from it.
///
///     ; anything that is no section and no key is kept as it stands
///     [FILTERS]
///     1=HIGH,MIN,2.5,false
///     name=" leading blanks, quotes and line breaks are written in quotes\n"
///
/// The text is UTF-8, with or without a byte order mark; lines end in LF or CRLF. A line that begins with '[' and has a
/// ']' begins a section; one with a '=' that begins with neither ';' nor '#' is a key with its value, blanks around
/// both dropped. Keys before the first section are those of the section L"". Names are compared exactly. Where a
/// section or a key is there twice, the sections are one and the first of the keys counts.
///
/// A value that begins and ends with '"' is taken without them, with \\ \" \n \r \t inside for what they stand for.
/// Numbers are written in the shortest form that reads back to the same, with a point, whatever the locale.
///
/// (1) What was set is got again, whatever the text. (2) Saving what was opened and not changed gives the same bytes.
/// (3) A change leaves all other lines as they were, comments and order included.
///
/// The settings are looked for at the first question that asks for one: who reads another form pays nothing for them.
///
/// Not thread safe; any number of threads may read one that nobody changes.
class FileObject {
 public:
  /// No file is read that is longer, in bytes.
  static constexpr std::uintmax_t kMaxLength = std::uintmax_t{256} << 20;
  /// A file with more sections and keys is read, but holds no settings, and none can be set.
  static constexpr std::size_t kMaxEntries = 1'000'000;

  FileObject() = default;
  FileObject(const FileObject&) = delete;
  FileObject& operator=(const FileObject&) = delete;

  /// Reads a file whole, in place of what was here before.
  /// @param mode  taken for the sake of those who pass one; every file is read as a text.
  /// @return false, with nothing changed, when it isn't there, is no regular file, can't be read, or has more than
  /// `kMaxLength` bytes.
  bool FileOpen(const std::wstring& path, unsigned mode = 0);

  /// Writes the settings. The file is written beside its place, flushed, and renamed when complete, so that there is
  /// always the whole new one or what was there before; an existing file keeps its permissions, and a link stays one.
  /// @return false when it couldn't be written; the file is as it was then.
  bool FileSave(const std::wstring& path);

  /// Forgets everything.
  void FileClose();

  /// The path of the file that was last opened or saved; empty when there was none.
  const std::wstring& GetPath() const { return path_; }

  /// The bytes of the file as they were when it was opened, settings or not.
  const std::string& GetContent() const { return content_; }

  /// The settings as they would be saved now.
  std::string GetText() const;

  bool HasSection(const std::wstring& section) const;
  /// The names in the order of the file, each once.
  std::vector<std::wstring> GetSections() const;
  std::vector<std::wstring> GetKeys(const std::wstring& section) const;

  // Each gives a value by section and key. False, with `value` untouched, when there is none or it isn't of that form:
  // a finite number with a point; a whole number that fits; true, false, 1 or 0.
  bool GetString(const std::wstring& section, const std::wstring& key, std::wstring& value) const;
  bool GetDouble(const std::wstring& section, const std::wstring& key, double& value) const;
  bool GetInt(const std::wstring& section, const std::wstring& key, std::int64_t& value) const;
  bool GetBool(const std::wstring& section, const std::wstring& key, bool& value) const;

  // Each sets a value, putting a new key behind the last of its section and a new section at the end. False, with
  // nothing changed, when the name can't be one: a section with ']' or a line break or blanks around it; a key that is
  // empty, begins with '[', ';' or '#', or has '=', a line break or blanks around it; a number that isn't finite.
  bool SetString(const std::wstring& section, const std::wstring& key, const std::wstring& value);
  bool SetDouble(const std::wstring& section, const std::wstring& key, double value);
  bool SetInt(const std::wstring& section, const std::wstring& key, std::int64_t value);
  bool SetBool(const std::wstring& section, const std::wstring& key, bool value);

  /// Takes a section out with all its keys and the comments between them. @return false when there is none.
  bool RemoveSection(const std::wstring& section);
  /// Takes a key out, wherever it stands twice too. @return false when there is none.
  bool RemoveKey(const std::wstring& section, const std::wstring& key);

 private:
  enum class Form { kOther, kSection, kKey };
  /// A line, or lines of no meaning behind each other, with their ends.
  struct Piece {
    Form form = Form::kOther;
    std::size_t begin = 0;  // in content_, when it comes from there unchanged
    std::size_t length = 0;
    std::string text;     // else the text
    std::string section;  // where it stands
    std::string key;
    std::string value;
  };
  using Pieces = std::list<Piece>;
  using Name = std::pair<std::string, std::string>;

  void EnsureParsed() const;
  bool Parse() const;
  bool ParseLine(std::size_t begin, std::size_t end, std::string& section) const;
  void AddOther(std::size_t begin, std::size_t end, const std::string& section) const;
  std::string_view TextOf(const Piece& piece) const;
  bool SetValue(const std::wstring& section, const std::wstring& key, std::string value);
  Pieces::iterator EndOfSection(const std::string& section);
  void EndLine(Pieces::iterator before);
  void IndexAgain() const;
  const Piece* Find(const std::wstring& section, const std::wstring& key) const;

  std::wstring path_;
  std::string content_;

  // Made of content_ by the first of any number of threads that needs it.
  mutable std::mutex parsing_;
  mutable std::atomic<bool> parsed_{true};
  mutable bool tooMany_ = false;  // entries
  mutable Pieces pieces_;
  mutable std::map<Name, Pieces::iterator> index_;  // the first of each key
};

}  // namespace vak
