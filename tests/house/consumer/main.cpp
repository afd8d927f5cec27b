#include <cstdio>

#include "vakdtm/services/files/DataStream.h"

int main() {
  // A reference to the type is enough to see that the header and what it includes were installed.
  static_assert(vak::DataStream::kFromEnd == 2);
  std::printf("mean -12.5 of 2\n");
}
