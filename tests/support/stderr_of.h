// Returns what a call writes to the standard error stream.
#pragma once

#include <gtest/gtest.h>

#include <string>

template <class Call> std::string StderrOf(const Call &call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}
