// Logs what its argument says; LogProbeLines.h has a function for each.

#include <string_view>

#include "LogProbeLines.h"

int main(int argc, char** argv) {
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "levels") {
        logEveryLevel();
    } else if (what == "storm") {
        logStorm(500);
    } else if (what == "seconds") {
        logSeconds();
    } else if (what == "ids") {
        logIds();
    } else if (what == "lengths") {
        logLengths();
    } else if (what == "place") {
        logWithPlace();
    }
    return 0;
}
