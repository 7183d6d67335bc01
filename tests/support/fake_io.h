// Makes system calls on files fail, or kill their process, on request.
//
// Counts the calls of this thread that create, open, map, write, truncate, rename, lock or sync files, except while an
// Uncounted (see uncounted.h) exists.
#pragma once

#include <string>

// Makes the nth counted call from now on fail with `error`, counted from 1; with `for_good` also all later calls. 0
// disarms it.
void FailIo(int nth, int error = 0, bool for_good = false);

// Makes the nth counted call from now on kill the process with SIGKILL before it has any effect.
void DieAtIo(int nth);

// Returns the number of counted calls since the last FailIo() or DieAtIo().
int IoMade();

// Returns whether all changes of this thread to the file or directory through counted calls survive a power cut. Call
// it right after the changes: only the last few are remembered.
bool IsSynced(const std::string &path);
