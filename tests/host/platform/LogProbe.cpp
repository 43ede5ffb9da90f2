// Logs what its argument says: "levels" or "storm".

#include <string_view>

#include "LogProbeLines.h"

int main(int argc, char** argv) {
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "levels") {
        logEveryLevel();
    } else if (what == "storm") {
        logStorm(500);
    }
    return 0;
}
