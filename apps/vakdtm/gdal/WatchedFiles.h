#pragma once

#include <string>

/// Lets GDAL write its files through functions that tell whether the system took every byte: some of its drivers don't
/// look, at the end least of all, and a file that was cut short by a full disk would pass for a whole one. It also
/// spares them a system call for each line.
///
/// One process, one tally: `Failure` is that of all files since `Forget`. For one thread at a time.
namespace vak::watched {

/// Makes it known to GDAL. To be called before any `Path` is used; more than once does no harm.
void Install();

/// @return the path by which GDAL opens the file this way. Files that are there, too.
std::string Path(const std::string& path);

/// @return `errno` of the first write that failed, 0 when none has.
int Failure();

/// Lets every call ask this from now on: when it answers anything but 0, the call fails, with `ECANCELED`, so that
/// whoever works on a file comes to an end soon. It is told by `Failure` as well.
void StopWhen(int (*stopped)());

void Forget();

}  // namespace vak::watched
