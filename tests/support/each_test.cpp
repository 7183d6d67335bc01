#include "each_test.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kTimeout = 120; // seconds; then the kernel ends the test

// The output of a process, which stays readable after the process has ended.
class Output {
public:
  Output() : file_(tmpfile()) {}
  ~Output() { fclose(file_); }
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  // Redirects standard output and standard error of this process to it.
  void Take() const {
    dup2(fileno(file_), STDOUT_FILENO);
    dup2(fileno(file_), STDERR_FILENO);
  }
  std::string Text() const {
    rewind(file_);
    std::string text;
    for (int byte = getc(file_); byte != EOF; byte = getc(file_)) {
      text += static_cast<char>(byte);
    }
    return text;
  }

private:
  FILE *file_;
};

// Forks, and sends the output of the new process to `output`. Returns the number of the new process here, and 0 there.
pid_t Fork(const Output &output) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    output.Take();
    alarm(kTimeout);
  }
  return pid;
}

// Waits until the process ends. Returns how it failed, or an empty text if it succeeded.
std::string WaitForFailure(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFSIGNALED(status)) {
    return strsignal(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == EXIT_SUCCESS ? "" : "exit status " + std::to_string(WEXITSTATUS(status));
}

// Returns the full names of the tests in the list that GoogleTest prints: lines "Suite." and "  Test  # note".
std::vector<std::string> ParseList(const std::string &list) {
  std::vector<std::string> names;
  std::string suite;
  for (std::size_t begin = 0, end = 0; (end = list.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const std::string line = list.substr(begin, end - begin);
    const std::size_t name = line.find_first_not_of(' ');
    if (name == 0) {
      suite = line.substr(0, line.find(' '));
    } else if (name != std::string::npos) {
      names.push_back(suite + line.substr(name, line.find(' ', name) - name));
    }
  }
  return names;
}

bool NamesOneTest(const std::string &filter) {
  return !filter.empty() && filter.find_first_of("*?:-") == std::string::npos;
}

// Lists the selected tests in a process of its own, because GoogleTest can list or run tests only once per process.
std::vector<std::string> SelectedTests() {
  const Output list;
  const pid_t pid = Fork(list);
  if (pid == 0) {
    GTEST_FLAG_SET(list_tests, true);
    exit(RUN_ALL_TESTS());
  }
  waitpid(pid, nullptr, 0);
  return ParseList(list.Text());
}

} // namespace

std::optional<int> ForkEachTest() {
  if (GTEST_FLAG_GET(list_tests) || NamesOneTest(GTEST_FLAG_GET(filter))) {
    return std::nullopt;
  }
  const std::vector<std::string> tests = SelectedTests();
  std::vector<std::string> failed;
  for (const std::string &test : tests) {
    puts(test.c_str());
    const Output output;
    const pid_t pid = Fork(output);
    if (pid == 0) {
      GTEST_FLAG_SET(filter, test);
      return std::nullopt;
    }
    const std::string failure = WaitForFailure(pid);
    const std::string text = output.Text();
    if (!failure.empty() || text.find("[  SKIPPED ]") != std::string::npos) {
      fputs(text.c_str(), stdout);
    }
    if (!failure.empty()) {
      failed.push_back(test + " (" + failure + ")");
    }
  }
  printf("%zu of %zu tests passed\n", tests.size() - failed.size(), tests.size());
  for (const std::string &test : failed) {
    printf("failed: %s\n", test.c_str());
  }
  return failed.empty() && !tests.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
