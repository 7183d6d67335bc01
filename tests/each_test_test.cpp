// How a suite starts a process for each of its tests, and what it says of those that fail.
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "run_command.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

Ran RunSuite(const std::string &filter) { return RunCommand({LUMIO_FAILING_SUITE, "--gtest_filter=" + filter}); }

TEST(EachTest, RunsInAProcessOfItsOwn) {
  const Ran ran = RunSuite("*New*:*Parameter*");
  EXPECT_EQ(ran.output, "Process.IsNew\nProcess.IsNewEachTime\nSome/ForEach.Parameter/0\nSome/ForEach.Parameter/1\n"
                        "4 of 4 tests passed\n");
  EXPECT_EQ(ran.status, EXIT_SUCCESS);
}

TEST(EachTest, FailsTheSuite) {
  const Ran ran = RunSuite("*New:*Fails");
  EXPECT_THAT(ran.output, AllOf(HasSubstr("this is why"), Not(HasSubstr("RUN      ] Process.IsNew")),
                                EndsWith("1 of 2 tests passed\nfailed: Process.Fails (exit status 1)\n")));
  EXPECT_EQ(ran.status, EXIT_FAILURE);
}

TEST(EachTest, FailsTheSuiteWhenASignalEndsIt) {
  const Ran ran = RunSuite("*Aborts:*New");
  EXPECT_THAT(ran.output, EndsWith("1 of 2 tests passed\nfailed: Process.Aborts (Aborted)\n"));
  EXPECT_EQ(ran.status, EXIT_FAILURE);
}

TEST(EachTest, FailsTheSuiteWhenItLeavesADescriptorOpen) {
  const Ran ran = RunSuite("*New:*Descriptor*");
  EXPECT_THAT(ran.output, AllOf(HasSubstr("The test has left file descriptors open."),
                                EndsWith("failed: Process.LeavesADescriptorOpen (exit status 1)\n")));
  EXPECT_EQ(ran.status, EXIT_FAILURE);
}

TEST(EachTest, SaysWhyItIsSkipped) {
  const Ran ran = RunSuite("*Skips:*New");
  EXPECT_THAT(ran.output, HasSubstr("not here"));
  EXPECT_EQ(ran.status, EXIT_SUCCESS);
}

TEST(EachTest, IsMissedInASuiteWithoutTests) {
  const Ran ran = RunSuite("*Nothing*");
  EXPECT_EQ(ran.output, "0 of 0 tests passed\n");
  EXPECT_EQ(ran.status, EXIT_FAILURE);
}

TEST(EachTest, RunsAtOnceWhereItIsTheOnlyOne) {
  EXPECT_THAT(RunSuite("Process.IsNew").output, EndsWith("[  PASSED  ] 1 test.\n"));
}

} // namespace
