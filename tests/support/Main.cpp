#include <gmock/gmock.h>

#include "support/Worker.h"

int main(int argc, char** argv) {
  int status = 0;
  if (vak::test::Worker::RunIfAsked(argc, argv, status)) return status;
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
