#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <gmock/gmock.h>

/** Runs the tests in a process that the library is preloaded into. */
int main(int argc, char** argv) {
    const char* preloaded = std::getenv("LD_PRELOAD");
    if (preloaded == nullptr || std::string_view(preloaded) != REDIRECT_LIBRARY) {
        setenv("LD_PRELOAD", REDIRECT_LIBRARY, 1);
        execvp(argv[0], argv);
        perror(argv[0]);
        return 1;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
