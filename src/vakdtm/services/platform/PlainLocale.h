#pragma once

namespace vak {

/// Makes the C library print and read on the calling thread as in a program that knows of no locale, for a scope: a
/// point for the decimals, no grouping. Other threads and the process's own locale aren't touched.
class PlainLocale {
 public:
  PlainLocale();
  ~PlainLocale();

  PlainLocale(const PlainLocale&) = delete;
  PlainLocale& operator=(const PlainLocale&) = delete;

 private:
  void* former_;  // the system's handle of what was in use
};

}  // namespace vak
