#pragma once

#include <algorithm>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/fakes/ChildProcess.h"

namespace ambrel::testing {

// The one line of JSON a run printed (discarded JSON when it is none); the run must have
// started, ended in time and printed exactly one line. Its exit code goes to `exitCode`.
inline nlohmann::json singleJsonLine(const ProcessOutcome& outcome, int& exitCode) {
    EXPECT_TRUE(outcome.started);
    EXPECT_FALSE(outcome.timedOut);
    exitCode = outcome.exitCode;
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << outcome.out;
    return nlohmann::json::parse(outcome.out, nullptr, false);
}

} // namespace ambrel::testing
