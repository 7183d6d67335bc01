// A suite with a test for each way in which a test can end. tests/each_test_test.cpp runs it.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cstdlib>

namespace {

int g_runs;

TEST(Process, IsNew) { EXPECT_EQ(++g_runs, 1); }
TEST(Process, IsNewEachTime) { EXPECT_EQ(++g_runs, 1); }
TEST(Process, Fails) { FAIL() << "this is why"; }
TEST(Process, Aborts) { std::abort(); }
TEST(Process, Skips) { GTEST_SKIP() << "not here"; }
TEST(Process, LeavesADescriptorOpen) { EXPECT_GE(open("/dev/null", O_RDONLY), 0); }

class ForEach : public testing::TestWithParam<int> {};
TEST_P(ForEach, Parameter) { EXPECT_EQ(++g_runs, 1); }
INSTANTIATE_TEST_SUITE_P(Some, ForEach, testing::Values(1, 2));

} // namespace
