// The keys and values that vconf and lumio-vconf share with all processes of the user.
//
// All functions may be called on any thread. Functions that return a code return 0, one of the codes below, or another
// code that Explain() knows.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lumio::store {

enum : int {
  kAbsent = -1,     // no such key
  kBadKey = -2,     // null, empty, too long, or neither in memory/ nor in db/
  kNotInteger = -3, // another program has stored a value that is not an integer
};

int Get(const char *key, int *value);
int Set(const char *key, int value);
int Unset(const char *key);

constexpr const char *kPrefixes[] = {"db/", "memory/"}; // every key begins with one of these

// Appends all keys that begin with `prefix`, sorted. `prefix` must begin with one of kPrefixes. Omits keys whose value
// is not an integer, and then returns kNotInteger.
int List(const std::string &prefix, std::vector<std::pair<std::string, int>> *entries);

// Sets `path` to the file that every change of the key writes, with a system call that inotify reports. A watcher that
// calls GetSettled() after it begins to watch the file and after each report misses no lasting change.
int FileToWatch(const char *key, std::string *path);
int GetSettled(const char *key, int *value);

// Returns a message for people: where the key, or the keys with this prefix, are stored, and what the code means.
std::string Explain(const char *key, int code);

// Closes all files until the next use of the store.
void Close();

} // namespace lumio::store
