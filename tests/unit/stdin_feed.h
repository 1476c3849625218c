// Runs a piece of code with the given keys waiting on fd 0 (then end of
// input) and returns what it printed. Keys it leaves unread are drained so
// that they cannot reach the next case.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <unistd.h>

inline std::string withKeysOnStdin(const std::string &strKeys, const std::function<void()> &fn)
{
    int aiPipe[2];
    EXPECT_EQ(0, pipe(aiPipe));
    EXPECT_EQ(static_cast<ssize_t>(strKeys.size()),
              write(aiPipe[1], strKeys.data(), strKeys.size()));
    close(aiPipe[1]);
    int iSaved = dup(0);
    dup2(aiPipe[0], 0);
    close(aiPipe[0]);
    clearerr(stdin);
    testing::internal::CaptureStdout();
    fn();
    std::string strOut = testing::internal::GetCapturedStdout();
    while (getchar() != EOF) {
    }
    dup2(iSaved, 0);
    close(iSaved);
    clearerr(stdin);
    return strOut;
}
