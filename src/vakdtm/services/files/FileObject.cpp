#include "vakdtm/services/files/FileObject.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsQuoted(std::string_view text) { return text.size() >= 2 && text.front() == '"' && text.back() == '"'; }

char Meaning(char escaped) {
  switch (escaped) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return escaped;
  }
}

std::string Unquote(std::string_view text) {
  if (!IsQuoted(text)) return std::string(text);
  text = text.substr(1, text.size() - 2);
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '\\' && i + 1 < text.size();
    plain += escape ? Meaning(text[++i]) : text[i];
  }
  return plain;
}

std::string Quote(std::string_view plain) {
  const bool needed = Trim(plain) != plain || plain.find_first_of("\r\n") != std::string_view::npos || IsQuoted(plain);
  if (!needed) return std::string(plain);
  std::string text = "\"";
  for (const char c : plain) {
    switch (c) {
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      case '\t':
        text += "\\t";
        break;
      case '"':
      case '\\':
        text += '\\';
        [[fallthrough]];
      default:
        text += c;
    }
  }
  return text + '"';
}

bool CanBeSection(std::string_view name) {
  return Trim(name) == name && name.find_first_of("]\r\n") == std::string_view::npos;
}

bool CanBeKey(std::string_view name) {
  if (name.empty() || Trim(name) != name || name.find_first_of("=\r\n") != std::string_view::npos) return false;
  return name.front() != '[' && name.front() != ';' && name.front() != '#';
}

/// Reads all of a text as a number. @return false when it isn't one.
template <typename T>
bool ReadNumber(std::string_view text, T& value) {
  T read{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), read);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  value = read;
  return true;
}

bool ReadAll(int descriptor, std::string& content) {
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t count = read(descriptor, content.data() + done, content.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  content.resize(done);  // the file has become shorter meanwhile
  return true;
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Makes a file that nobody else has, under a name of its own. @param made  gets its path.
FileHandle MakeFile(const std::string& folder, mode_t mode, std::string& made) {
  static std::atomic<unsigned> count{0};
  constexpr int kTries = 1000;  // names that a process of the same number has left behind
  for (int i = 0; i < kTries; ++i) {
    made = folder + ".vakdtm-save-" + std::to_string(getpid()) + "-" + std::to_string(++count);
    FileHandle file(open(made.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (file.IsOpen() || errno != EEXIST) return file;
  }
  return FileHandle();
}

/// Puts `text` into a new file beside `target` and renames it to that. @return false when nothing has changed.
bool ReplaceFile(const std::string& target, std::string_view text) {
  struct stat info{};
  const bool there = stat(target.c_str(), &info) == 0;
  if (there && !S_ISREG(info.st_mode)) return false;
  const std::size_t slash = target.rfind('/');
  std::string made;
  const std::string folder = target.substr(0, slash == std::string::npos ? 0 : slash + 1);
  // A new file is as open as the user's mask lets it be; one that replaces another keeps out whom that did.
  FileHandle file = MakeFile(folder, there ? 0600 : 0666, made);
  if (!file.IsOpen()) return false;
  const bool allowed = !there || fchmod(file.Get(), info.st_mode & 07777) == 0;
  const bool written = allowed && WriteAll(file.Get(), text) && fsync(file.Get()) == 0;
  if (file.Close() && written && rename(made.c_str(), target.c_str()) == 0) return true;
  unlink(made.c_str());
  return false;
}

}  // namespace

bool FileObject::FileOpen(const std::wstring& path, unsigned /*mode*/) {
  // Without O_NONBLOCK the open would wait for the writer of a pipe.
  const FileHandle file = OpenDescriptor(ToUtf8(path).c_str(), O_RDONLY | O_NONBLOCK);
  struct stat info{};
  if (!file.IsOpen() || fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
  if (static_cast<std::uintmax_t>(info.st_size) > kMaxLength) return false;
  std::string content(static_cast<std::size_t>(info.st_size), '\0');
  if (!ReadAll(file.Get(), content)) return false;
  FileClose();
  path_ = path;
  content_ = std::move(content);
  parsed_ = false;
  return true;
}

bool FileObject::FileSave(const std::wstring& path) {
  std::error_code error;
  // Through a link, so that the link stays and leads to the new file.
  std::filesystem::path target = std::filesystem::weakly_canonical(ToUtf8(path), error);
  if (path.empty() || error) return false;
  if (!ReplaceFile(target.native(), GetText())) return false;
  path_ = path;
  return true;
}

void FileObject::FileClose() {
  path_.clear();
  content_ = std::string();  // gives the memory back, which `clear` doesn't
  pieces_.clear();
  index_.clear();
  tooMany_ = false;
  parsed_ = true;
}

std::string FileObject::GetText() const {
  if (!parsed_ || tooMany_) return content_;  // nothing was changed
  std::string text;
  for (const Piece& piece : pieces_) text += TextOf(piece);
  return text;
}

std::string_view FileObject::TextOf(const Piece& piece) const {
  return piece.text.empty() ? std::string_view(content_).substr(piece.begin, piece.length) : piece.text;
}

void FileObject::EnsureParsed() const {
  if (parsed_.load(std::memory_order_acquire)) return;
  const std::scoped_lock lock(parsing_);
  if (parsed_.load(std::memory_order_relaxed)) return;
  tooMany_ = !Parse();
  if (tooMany_) {
    pieces_.clear();
    index_.clear();
  }
  parsed_.store(true, std::memory_order_release);
}

/// @return false when there are too many entries.
bool FileObject::Parse() const {
  std::string section;
  std::size_t begin = content_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  if (begin > 0) AddOther(0, begin, section);
  std::size_t entries = 0;
  while (begin < content_.size()) {
    const std::size_t lineBreak = content_.find('\n', begin);
    const std::size_t end = lineBreak == std::string::npos ? content_.size() : lineBreak + 1;
    if (ParseLine(begin, end, section)) {
      if (++entries > kMaxEntries) return false;
    } else {
      AddOther(begin, end, section);
    }
    begin = end;
  }
  IndexAgain();
  return true;
}

bool FileObject::ParseLine(std::size_t begin, std::size_t end, std::string& section) const {
  std::string_view line = std::string_view(content_).substr(begin, end - begin);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  line = Trim(line);
  if (line.empty() || line.front() == ';' || line.front() == '#') return false;
  Piece piece{Form::kKey, begin, end - begin, {}, section, {}, {}};
  const std::size_t close = line.find(']');
  if (line.front() == '[' && close != std::string_view::npos) {
    section = Trim(line.substr(1, close - 1));
    piece.form = Form::kSection;
    piece.section = section;
  } else {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || line.front() == '[') return false;
    piece.key = Trim(line.substr(0, equals));
    if (piece.key.empty()) return false;
    piece.value = Unquote(Trim(line.substr(equals + 1)));
  }
  pieces_.push_back(std::move(piece));
  return true;
}

void FileObject::AddOther(std::size_t begin, std::size_t end, const std::string& section) const {
  if (!pieces_.empty() && pieces_.back().form == Form::kOther) {
    pieces_.back().length += end - begin;
  } else {
    pieces_.push_back({Form::kOther, begin, end - begin, {}, section, {}, {}});
  }
}

void FileObject::IndexAgain() const {
  index_.clear();
  for (auto piece = pieces_.begin(); piece != pieces_.end(); ++piece) {
    if (piece->form == Form::kKey) index_.emplace(Name(piece->section, piece->key), piece);
  }
}

const FileObject::Piece* FileObject::Find(const std::wstring& section, const std::wstring& key) const {
  EnsureParsed();
  const auto found = index_.find({ToUtf8(section), ToUtf8(key)});
  return found == index_.end() ? nullptr : &*found->second;
}

bool FileObject::HasSection(const std::wstring& section) const {
  EnsureParsed();
  const std::string name = ToUtf8(section);
  for (const Piece& piece : pieces_) {
    if (piece.form != Form::kOther && piece.section == name) return true;
  }
  return false;
}

std::vector<std::wstring> FileObject::GetSections() const {
  EnsureParsed();
  std::vector<std::wstring> names;
  std::map<std::string, bool> seen;
  for (const Piece& piece : pieces_) {
    if (piece.form != Form::kOther && seen.emplace(piece.section, true).second)
      names.push_back(FromUtf8(piece.section));
  }
  return names;
}

std::vector<std::wstring> FileObject::GetKeys(const std::wstring& section) const {
  EnsureParsed();
  const std::string name = ToUtf8(section);
  std::vector<std::wstring> keys;
  for (const Piece& piece : pieces_) {
    if (piece.form != Form::kKey || piece.section != name) continue;
    if (&*index_.at({name, piece.key}) == &piece) keys.push_back(FromUtf8(piece.key));
  }
  return keys;
}

bool FileObject::GetString(const std::wstring& section, const std::wstring& key, std::wstring& value) const {
  const Piece* piece = Find(section, key);
  if (piece == nullptr) return false;
  value = FromUtf8(piece->value);
  return true;
}

bool FileObject::GetDouble(const std::wstring& section, const std::wstring& key, double& value) const {
  const Piece* piece = Find(section, key);
  double read = 0;
  if (piece == nullptr || !ReadNumber(piece->value, read) || !std::isfinite(read)) return false;
  value = read;
  return true;
}

bool FileObject::GetInt(const std::wstring& section, const std::wstring& key, std::int64_t& value) const {
  const Piece* piece = Find(section, key);
  return piece != nullptr && ReadNumber(piece->value, value);
}

bool FileObject::GetBool(const std::wstring& section, const std::wstring& key, bool& value) const {
  const Piece* piece = Find(section, key);
  if (piece == nullptr) return false;
  const bool yes = piece->value == "true" || piece->value == "1";
  if (!yes && piece->value != "false" && piece->value != "0") return false;
  value = yes;
  return true;
}

bool FileObject::SetString(const std::wstring& section, const std::wstring& key, const std::wstring& value) {
  return SetValue(section, key, ToUtf8(value));
}

bool FileObject::SetDouble(const std::wstring& section, const std::wstring& key, double value) {
  if (!std::isfinite(value)) return false;
  std::string text;
  AppendNumber(text, value);
  return SetValue(section, key, std::move(text));
}

bool FileObject::SetInt(const std::wstring& section, const std::wstring& key, std::int64_t value) {
  return SetValue(section, key, std::to_string(value));
}

bool FileObject::SetBool(const std::wstring& section, const std::wstring& key, bool value) {
  return SetValue(section, key, value ? "true" : "false");
}

bool FileObject::SetValue(const std::wstring& section, const std::wstring& key, std::string value) {
  const Name name(ToUtf8(section), ToUtf8(key));
  EnsureParsed();
  if (tooMany_ || !CanBeSection(name.first) || !CanBeKey(name.second)) return false;
  std::string line = name.second + "=" + Quote(value) + "\n";
  const auto found = index_.find(name);
  if (found != index_.end()) {
    found->second->text = std::move(line);
    found->second->value = std::move(value);
    return true;
  }
  const auto end = EndOfSection(name.first);
  EndLine(end);
  index_[name] = pieces_.insert(end, {Form::kKey, 0, 0, std::move(line), name.first, name.second, std::move(value)});
  return true;
}

/// Where a new key of the section goes, before that piece; makes the section when there is none.
FileObject::Pieces::iterator FileObject::EndOfSection(const std::string& section) {
  for (auto piece = pieces_.end(); piece != pieces_.begin();) {
    const auto behind = piece--;
    if (piece->form != Form::kOther && piece->section == section) return behind;
  }
  if (section.empty()) {  // before the first section
    auto first = pieces_.begin();
    while (first != pieces_.end() && first->form == Form::kOther) ++first;
    return first;
  }
  EndLine(pieces_.end());
  pieces_.push_back({Form::kSection, 0, 0, "[" + section + "]\n", section, {}, {}});
  return pieces_.end();
}

/// Gives the piece before that one its line end, which the last line of a file may lack.
void FileObject::EndLine(Pieces::iterator before) {
  if (before == pieces_.begin()) return;
  Piece& piece = *std::prev(before);
  const std::string_view text = TextOf(piece);
  if (text.empty() || text.back() == '\n' || text == kByteOrderMark) return;
  piece.text = std::string(text) + "\n";
}

bool FileObject::RemoveSection(const std::wstring& section) {
  if (!HasSection(section)) return false;
  const std::string name = ToUtf8(section);
  bool begun = false;
  for (auto piece = pieces_.begin(); piece != pieces_.end();) {
    // What stands before the first key or title of the section is somebody else's, as the file's own opening remark.
    begun = begun || (piece->form != Form::kOther && piece->section == name);
    piece = begun && piece->section == name ? pieces_.erase(piece) : std::next(piece);
  }
  IndexAgain();
  return true;
}

bool FileObject::RemoveKey(const std::wstring& section, const std::wstring& key) {
  const Name name(ToUtf8(section), ToUtf8(key));
  EnsureParsed();
  if (!index_.contains(name)) return false;
  pieces_.remove_if([&name](const Piece& piece) {
    return piece.form == Form::kKey && piece.section == name.first && piece.key == name.second;
  });
  index_.erase(name);
  return true;
}

}  // namespace vak
