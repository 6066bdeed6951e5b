#include <gtest/gtest.h>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Death tests run the plugin in a child process; "threadsafe" re-executes
  // the test binary instead of forking a possibly multi-threaded process.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  return RUN_ALL_TESTS();
}
