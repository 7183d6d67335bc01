// The keys and values that vconf and its command-line tool share with all processes of the user.
//
// All functions may be called on any thread. Those that return a code answer 0, one of the codes below, or one that
// Explain() knows.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lumio::store {

enum : int {
  kAbsent = -1,     // no such key
  kBadKey = -2,     // null, empty, too long, or neither below memory/ nor below db/
  kNotInteger = -3, // somebody else has put there what is not an integer
};

int Get(const char *key, int *value);
int Set(const char *key, int value);
int Unset(const char *key);

constexpr const char *kPrefixes[] = {"db/", "memory/"}; // every key begins with one of these

// Appends all keys that begin with `prefix`, which itself begins with one of kPrefixes; sorted.
// Leaves out those whose value is not an integer, and tells so only by its code.
int List(const std::string &prefix, std::vector<std::pair<std::string, int>> *entries);

// Every change of a key writes to this file, with a system call that inotify reports. A watcher that reads with
// GetSettled() when it has begun to watch the file and after each report misses no change that lasts.
int FileToWatch(const char *key, std::string *path);
int GetSettled(const char *key, int *value);

// Where the key or the keys with that prefix are kept, and what the code means, for people.
std::string Explain(const char *key, int code);

// Closes all files until the next use.
void Close();

} // namespace lumio::store
