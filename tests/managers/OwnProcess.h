#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace test {

/**
 * Runs a test's body in a child process, which ends with it: what the daemon reads once per process
 * it reads anew in each. What the body finds wrong is printed there, and fails the test here. To be
 * called while no other thread runs.
 */
inline void inOwnProcess(const std::function<void()>& body) {
    fflush(nullptr);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        body();
        fflush(nullptr);
        // Not _exit(): the sanitizers look for leaks at the end.
        exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), EXIT_SUCCESS) << "see above";
}

}  // namespace test
