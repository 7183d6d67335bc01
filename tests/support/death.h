// Tests preconditions that end the process.
#pragma once

#include <gmock/gmock.h>

#include <string>

// Expects `statement` to end the process with the C library's message for the assertion `text`.
#define EXPECT_ASSERTION(statement, text)                                                                              \
  EXPECT_DEATH(statement, testing::HasSubstr("Assertion `" + std::string(text) + "' failed."))

// Expects the message to name `function`, too, so that its reader knows which call was wrong.
#define EXPECT_ASSERTION_IN(function, statement, text)                                                                 \
  EXPECT_DEATH(statement, testing::AllOf(testing::HasSubstr("::" function "("),                                        \
                                         testing::HasSubstr("Assertion `" + std::string(text) + "' failed.")))
