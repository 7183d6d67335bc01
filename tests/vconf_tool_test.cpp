// Runs lumio-vconf as its users do.
#include <lumio-banner-state.h>
#include <lumio-host/testing.h>
#include <vconf.h>

#include "run_command.h"
#include "stored.h"

#include <gmock/gmock.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr const char *kNoKey = ": a key begins with \"memory/\" or \"db/\", continues, and has at most 511 bytes\n";

enum Status { kDone = 0, kNotSet = 1, kWrongUsage = 2, kFailed = 3 };

using Arguments = std::vector<std::string>;

Arguments Tool(const Arguments &arguments) {
  Arguments command = {LUMIO_VCONF};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

// Returns a shell command in which "$@" is the tool with its arguments.
Arguments Shell(const std::string &script, const Arguments &arguments) {
  Arguments command = {"/bin/sh", "-c", script, "sh"};
  for (const std::string &argument : Tool(arguments)) {
    command.push_back(argument);
  }
  return command;
}

Ran RunTool(const Arguments &arguments) { return RunCommand(Tool(arguments)); }

void ExpectDone(const Arguments &arguments, const std::string &output) {
  const Ran ran = RunTool(arguments);
  EXPECT_EQ(ran.output, output);
  EXPECT_EQ(ran.error, "");
  EXPECT_EQ(ran.status, kDone);
}

// Expects the tool to print only the reason why it refuses.
void ExpectRefused(const Arguments &arguments, Status status, const std::string &why) {
  const Ran ran = RunTool(arguments);
  EXPECT_EQ(ran.output, "");
  EXPECT_EQ(ran.error, "lumio-vconf: " + why);
  EXPECT_EQ(ran.status, status);
}

class VconfTool : public testing::Test {
protected:
  VconfTool() {
    signal(SIGPIPE, SIG_DFL); // in case the test was started with another action
  }

  static std::string Store() { return getenv("LUMIO_VCONF_DIR"); }

  const lumio::testing::EmptyStore store_;
};

TEST_F(VconfTool, SetsGetsAndUnsetsAKey) {
  for (const std::string key : {"db/a", "memory/a"}) {
    ExpectRefused({"get", key}, kNotSet, key + ": the key is not set\n");
    ExpectDone({"set", key, "17"}, "");
    ExpectDone({"get", key}, "17\n");
    EXPECT_EQ(Value(key), 17);
    EXPECT_EQ(vconf_set_int(key.c_str(), -18), 0);
    ExpectDone({"get", key}, "-18\n");
    ExpectDone({"unset", key}, "");
    ExpectRefused({"get", key}, kNotSet, key + ": the key is not set\n");
    ExpectRefused({"unset", key}, kNotSet, key + ": the key is not set\n");
    EXPECT_EQ(Value(key), std::nullopt);
  }
}

TEST_F(VconfTool, GetsTheInitialValueOfAKnownKey) { ExpectDone({"get", kBanners}, "0\n"); }

TEST_F(VconfTool, SetsEveryInteger) {
  const std::map<std::string, int> values = {
      {"0", 0}, {"-1", -1}, {"2147483647", INT_MAX}, {"-2147483648", INT_MIN}, {"007", 7}};
  for (const auto &[text, value] : values) {
    ExpectDone({"set", "db/a", text}, "");
    EXPECT_EQ(Value("db/a"), value) << text;
    ExpectDone({"get", "db/a"}, std::to_string(value) + "\n");
  }
}

TEST_F(VconfTool, RefusesValuesThatAreNotIntegers) {
  ExpectDone({"set", "db/a", "5"}, "");
  for (const std::string value : {"2147483648", "-2147483649", "9223372036854775808", "99999999999999999999999", "",
                                  " ", "-", "x", "5x", "5 ", "5.0", "0x10", "1e3"}) {
    ExpectRefused({"set", "db/a", value}, kWrongUsage, value + ": not an integer\n");
  }
  EXPECT_EQ(Value("db/a"), 5);
}

TEST_F(VconfTool, RefusesInvalidKeys) {
  const std::string too_long = "db/" + std::string(509, 'x');
  for (const std::string &key : {std::string(), std::string("a"), std::string("db"), std::string("db/"),
                                 std::string("memory/"), std::string("/db/a"), std::string("other/a"), too_long}) {
    ExpectRefused({"get", key}, kWrongUsage, key + kNoKey);
    ExpectRefused({"set", key, "1"}, kWrongUsage, key + kNoKey);
    ExpectRefused({"unset", key}, kWrongUsage, key + kNoKey);
    ExpectRefused({"watch", key}, kWrongUsage, key + kNoKey);
    ExpectRefused({"watch", "db/a", key}, kWrongUsage, key + kNoKey);
  }
  for (const std::string prefix : {"", "a", "db", "memory", "other/"}) {
    ExpectRefused({"list", prefix}, kWrongUsage, prefix + kNoKey);
  }
}

TEST_F(VconfTool, ListsAllKeysInOrder) {
  ExpectDone({"list"}, std::string(kBanners) + " 0\n");
  for (const char *key : {"memory/z", "memory/a", "db/b", "db/a/2", "db/a/10", "db/a"}) {
    EXPECT_EQ(vconf_set_int(key, key[3] - 'b'), 0);
  }
  const std::string db = "db/a -1\ndb/a/10 -1\ndb/a/2 -1\ndb/b 0\n";
  const std::string memory = "memory/a 13\n" + std::string(kBanners) + " 0\nmemory/z 13\n";
  ExpectDone({"list"}, db + memory);
  ExpectDone({"list", "db/"}, db);
  ExpectDone({"list", "memory/"}, memory);
}

TEST_F(VconfTool, ListsKeysWithAPrefix) {
  for (const char *key : {"db/a", "db/a/1", "db/ab", "db/b"}) {
    EXPECT_EQ(vconf_set_int(key, 1), 0);
  }
  ExpectDone({"list", "db/a"}, "db/a 1\ndb/a/1 1\ndb/ab 1\n");
  ExpectDone({"list", "db/a/"}, "db/a/1 1\n");
  ExpectDone({"list", "db/b"}, "db/b 1\n");
  ExpectDone({"list", "db/c"}, "");
}

TEST_F(VconfTool, PrintsItsUsageOnRequest) {
  const Ran help = RunTool({"--help"});
  EXPECT_THAT(help.output, StartsWith("usage: lumio-vconf get KEY\n"));
  EXPECT_EQ(help.error, "");
  EXPECT_EQ(help.status, kDone);
  EXPECT_EQ(RunTool({"-h"}).output, help.output);
  for (const char *told : {" get KEY\n", " set KEY VALUE\n", " unset KEY\n", " list [PREFIX]\n", " watch KEY...\n",
                           "0 done; 1 the key is not set; 2 wrong usage; 3 the store or the\noutput failed."}) {
    EXPECT_THAT(help.output, HasSubstr(told));
  }
}

TEST_F(VconfTool, PrintsItsUsageAfterAWrongCommand) {
  const std::string usage = RunTool({"--help"}).output;
  const std::vector<Arguments> wrong = {{},
                                        {""},
                                        {"--version"},
                                        {"GET", "db/a"},
                                        {"get"},
                                        {"get", "db/a", "db/b"},
                                        {"set", "db/a"},
                                        {"set", "db/a", "1", "2"},
                                        {"unset"},
                                        {"unset", "db/a", "db/b"},
                                        {"list", "db/", "memory/"},
                                        {"watch"}};
  for (const Arguments &arguments : wrong) {
    const Ran ran = RunTool(arguments);
    EXPECT_EQ(ran.output, "");
    EXPECT_EQ(ran.error, usage);
    EXPECT_EQ(ran.status, kWrongUsage) << testing::PrintToString(arguments);
  }
  EXPECT_FALSE(std::filesystem::exists(Store()));
}

// Failures.

TEST_F(VconfTool, ReportsAFullOutput) {
  EXPECT_EQ(vconf_set_int("db/a", 1), 0);
  const std::vector<Arguments> printing = {{"--help"}, {"get", "db/a"}, {"list"}, {"watch", "db/a"}};
  for (const Arguments &arguments : printing) {
    const Ran ran = RunCommand(Shell("exec \"$@\" >/dev/full", arguments));
    EXPECT_EQ(ran.error, "lumio-vconf: standard output: No space left on device\n");
    EXPECT_EQ(ran.status, kFailed) << arguments[0];
  }
  EXPECT_EQ(RunCommand(Shell("exec \"$@\" >/dev/full", {"set", "db/a", "2"})).status, kDone);
  EXPECT_EQ(Value("db/a"), 2);
}

// The store's files must not get the descriptors of closed standard streams.
TEST_F(VconfTool, PrintsNothingIntoTheStore) {
  EXPECT_EQ(vconf_set_int("db/a", 1), 0);
  EXPECT_EQ(vconf_set_int("memory/a", 2), 0);
  for (const char *streams : {">&-", "<&- >&-", "<&- >&- 2>&-"}) {
    const std::string script = std::string("exec \"$@\" ") + streams;
    const std::vector<Arguments> printing = {{"get", "db/a"}, {"list"}, {"watch", "db/a", "memory/a"}};
    for (const Arguments &arguments : printing) {
      EXPECT_EQ(RunCommand(Shell(script, arguments)).status, kFailed) << streams << arguments[0];
    }
    EXPECT_EQ(RunCommand(Shell(script, {"get", "memory/missing"})).status, kNotSet) << streams;
    ExpectDone({"list"}, "db/a 1\nmemory/a 2\n" + std::string(kBanners) + " 0\n");
  }
}

TEST_F(VconfTool, ReportsWhyTheStoreCannotBeUsed) {
  std::ofstream(Store()) << "not a directory";
  const std::string why = "db/a: " + Store() + "/db: Not a directory\n";
  ExpectRefused({"get", "db/a"}, kFailed, why);
  ExpectRefused({"set", "db/a", "1"}, kFailed, why);
  ExpectRefused({"unset", "db/a"}, kFailed, why);
  ExpectRefused({"watch", "db/a"}, kFailed, why);
  ExpectRefused({"list", "db/a"}, kFailed, why);
  ExpectRefused({"list"}, kFailed,
                "db/: " + Store() + "/db: Not a directory\nlumio-vconf: memory/: " + Store() +
                    "/memory: Not a directory\n");
}

TEST_F(VconfTool, ListsTheKeysThatItCanRead) {
  EXPECT_EQ(vconf_set_int("memory/a", 1), 0);
  std::ofstream(Store() + "/db") << "not a directory";
  const Ran ran = RunTool({"list"});
  EXPECT_EQ(ran.output, "memory/a 1\n" + std::string(kBanners) + " 0\n");
  EXPECT_EQ(ran.error, "lumio-vconf: db/: " + Store() + "/db: Not a directory\n");
  EXPECT_EQ(ran.status, kFailed);
}

// Watching.

// Reads what `lumio-vconf watch` prints, line by line.
class Watch {
public:
  explicit Watch(const Arguments &keys) : process_(Command(keys), {}) {}

  std::string Next() { return process_.ReadLine(Never()).value_or("(ended)"); }
  void Signal(int number) const { process_.Signal(number); }
  std::optional<int> Wait() { return process_.Wait(Never()); }

private:
  static Arguments Command(const Arguments &keys) {
    Arguments arguments = {"watch"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    return Tool(arguments);
  }

  lumio::Program process_;
};

TEST_F(VconfTool, WatchPrintsEachChange) {
  for (const std::string key : {"db/a", "memory/a"}) {
    Watch watch({key});
    EXPECT_EQ(watch.Next(), key + " unset");
    EXPECT_EQ(vconf_set_int(key.c_str(), 1), 0);
    EXPECT_EQ(watch.Next(), key + " 1");
    ExpectDone({"set", key, "-2"}, ""); // by another process
    EXPECT_EQ(watch.Next(), key + " -2");
    ExpectDone({"unset", key}, "");
    EXPECT_EQ(watch.Next(), key + " unset");
    ExpectDone({"set", key, "0"}, "");
    EXPECT_EQ(watch.Next(), key + " 0");
  }
}

TEST_F(VconfTool, WatchIgnoresOtherKeysAndTheSameValue) {
  EXPECT_EQ(vconf_set_int("db/a", 1), 0);
  Watch watch({"db/a"});
  EXPECT_EQ(watch.Next(), "db/a 1");
  EXPECT_EQ(vconf_set_int("db/ab", 2), 0);
  EXPECT_EQ(vconf_set_int("db/a", 1), 0);
  EXPECT_EQ(vconf_set_int("memory/a", 3), 0);
  EXPECT_EQ(vconf_set_int("db/a", 4), 0);
  EXPECT_EQ(watch.Next(), "db/a 4");
}

TEST_F(VconfTool, WatchPrintsSeveralKeysOfBothStores) {
  EXPECT_EQ(vconf_set_int("memory/b", 1), 0);
  Watch watch({"memory/b", "db/a", "db/b", "memory/a"});
  for (const char *line : {"memory/b 1", "db/a unset", "db/b unset", "memory/a unset"}) {
    EXPECT_EQ(watch.Next(), line);
  }
  for (const std::string key : {"db/b", "memory/a", "memory/b", "db/a", "memory/a"}) {
    const int value = Value(key).value_or(10) + 1;
    EXPECT_EQ(vconf_set_int(key.c_str(), value), 0);
    EXPECT_EQ(watch.Next(), key + " " + std::to_string(value));
  }
}

// Reads until the last value of each key has arrived. The values of a key only grow.
void ExpectLastValues(Watch *watch, std::map<std::string, int> *seen, int last) {
  const auto complete = [&] {
    for (const auto &[key, value] : *seen) {
      if (value != last) {
        return false;
      }
    }
    return true;
  };
  while (!complete()) {
    const std::string line = watch->Next();
    const size_t space = line.find(' ');
    ASSERT_NE(space, std::string::npos) << line;
    const auto key = seen->find(line.substr(0, space));
    ASSERT_NE(key, seen->end()) << line;
    const int value = std::stoi(line.substr(space));
    ASSERT_GT(value, key->second) << line;
    ASSERT_LE(value, last) << line;
    key->second = value;
  }
}

TEST_F(VconfTool, WatchNeverLosesTheLastValueOfABurst) {
  constexpr int kBursts = 30, kChanges = 20;
  std::map<std::string, int> seen;
  for (const char *key : {"db/a", "memory/a", "memory/b"}) {
    EXPECT_EQ(vconf_set_int(key, 0), 0);
    seen[key] = 0;
  }
  Watch watch({"db/a", "memory/a", "memory/b"});
  for (const auto &[key, value] : seen) {
    EXPECT_EQ(watch.Next(), key + " 0");
  }
  for (int burst = 1; burst <= kBursts; ++burst) {
    std::list<std::thread> writers;
    for (const auto &[name, before] : seen) {
      writers.emplace_back([key = name, first = before] {
        for (int value = first + 1; value <= first + kChanges; ++value) {
          EXPECT_EQ(vconf_set_int(key.c_str(), value), 0);
        }
      });
    }
    for (std::thread &writer : writers) {
      writer.join();
    }
    ASSERT_NO_FATAL_FAILURE(ExpectLastValues(&watch, &seen, burst * kChanges));
  }
}

TEST_F(VconfTool, WatchPrintsWhatChangedWhileItWasStopped) {
  Watch watch({"db/a", "memory/a"});
  EXPECT_EQ(watch.Next(), "db/a unset");
  EXPECT_EQ(watch.Next(), "memory/a unset");
  watch.Signal(SIGSTOP);
  for (int value = 1; value <= 100; ++value) {
    EXPECT_EQ(vconf_set_int("db/a", value), 0);
    EXPECT_EQ(vconf_set_int("memory/a", -value), 0);
  }
  watch.Signal(SIGCONT);
  std::string db, memory;
  while (db != "db/a 100" || memory != "memory/a -100") {
    const std::string line = watch.Next();
    ASSERT_NE(line, "(ended)");
    (line[0] == 'd' ? db : memory) = line;
  }
}

TEST_F(VconfTool, SeveralWatchesPrintTheSame) {
  Watch one({"memory/a"}), other({"memory/a"});
  for (Watch *watch : {&one, &other}) {
    EXPECT_EQ(watch->Next(), "memory/a unset");
  }
  for (int value = 1; value <= 10; ++value) {
    EXPECT_EQ(vconf_set_int("memory/a", value), 0);
    for (Watch *watch : {&one, &other}) {
      EXPECT_EQ(watch->Next(), "memory/a " + std::to_string(value));
    }
  }
}

TEST_F(VconfTool, WatchSeesBannersBeingShown) {
  const std::string line = std::string(kBanners) + " ";
  Watch watch({kBanners});
  EXPECT_EQ(watch.Next(), line + "0");
  EXPECT_EQ(lumio_set_banner_state(0, 1), 0);
  EXPECT_EQ(watch.Next(), line + "1");
  EXPECT_EQ(lumio_set_banner_state(0, 0), 0); // leaves the word as it is
  EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
  EXPECT_EQ(watch.Next(), line + "9");
  EXPECT_EQ(lumio_set_banner_state(31, 1), 0);
  EXPECT_EQ(watch.Next(), line + std::to_string(INT_MIN + 9));
}

TEST_F(VconfTool, WatchEndsWhenItIsStopped) {
  Watch watch({"db/a"});
  EXPECT_EQ(watch.Next(), "db/a unset");
  watch.Signal(SIGTERM);
  EXPECT_EQ(watch.Wait(), -SIGTERM);
}

// The watch ends without a change of the key.
TEST_F(VconfTool, WatchEndsWhenNobodyReadsItsOutput) {
  const std::string script = "exec 3>&1; { \"$@\" 3>&-; echo \"status $?\" >&3; } | head -n 1";
  const Ran ended = RunCommand(Shell(script, {"watch", "db/a"}));
  EXPECT_THAT(ended.output, AllOf(HasSubstr("db/a unset\n"), HasSubstr("status " + std::to_string(128 + SIGPIPE))));
  EXPECT_EQ(ended.error, "");
  const Ran told = RunCommand(Shell("trap '' PIPE; " + script, {"watch", "db/a"}));
  EXPECT_THAT(told.output, HasSubstr("status 3\n"));
  EXPECT_THAT(told.error, EndsWith("lumio-vconf: standard output: Broken pipe\n"));
}

} // namespace
