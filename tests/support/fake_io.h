// System calls on files that fail, or kill their process, on request.
//
// Counted are the calls of this thread that create, open, map, write, cut, rename, lock or sync files, except while an
// Uncounted (see uncounted.h) exists.
#pragma once

#include <string>

// Makes the nth counted call from now on, counted from 1, fail with `error`; with `for_good` also all that follow.
// 0 disarms.
void FailIo(int nth, int error = 0, bool for_good = false);

// Makes the nth counted call from now on kill the process with SIGKILL before it does anything.
void DieAtIo(int nth);

// Counted calls since the last FailIo() or DieAtIo().
int IoMade();

// Whether all that this thread did to the file or directory through the counted calls would outlive a power cut. For
// use right after it: only the last few changes are remembered.
bool IsSynced(const std::string &path);
