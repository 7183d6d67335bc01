// Runs the tests of all modules. EFL starts before the first test and ends after the last one.
#include <lumio-host/testing.h>

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  setenv("LUMIO_LOG", "none", 0); // to see the library's log, run the test with LUMIO_LOG=stderr
  const lumio::testing::Session session;
  return RUN_ALL_TESTS();
}
