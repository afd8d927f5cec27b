#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace vak {

/// Leaves an import that meets a line which it can't go on from. What was imported before that stays in the model.
class DtmImportException final : public std::exception {
 public:
  static constexpr std::uint32_t kFail = 0x80004005;  ///< E_FAIL: the line has a date that no line may have
  static constexpr std::uint32_t kInvalidArgument =
      0x80070057;  ///< E_INVALIDARG: the system knows no time of that date

  /// @param line  its number in the source, from 1. @param what  the fault in words, UTF-8.
  DtmImportException(std::uint32_t code, std::int64_t line, std::string what)
      : code_(code), line_(line), what_(std::move(what)) {}

  std::uint32_t Code() const { return code_; }
  std::int64_t Line() const { return line_; }
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  std::uint32_t code_;
  std::int64_t line_;
  std::string what_;
};

}  // namespace vak
