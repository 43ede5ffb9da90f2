#pragma once

#include <string>
#include <vector>

namespace Ursa::OS::Wifi {

/** Figures of this process from /proc. What cannot be read is 0 or missing. */
struct ProcessFigures {
    struct Thread {
        int id = 0;
        std::string name;
    };

    std::vector<Thread> threads;
    int descriptors = 0;
    long descriptorLimit = 0;
    long residentKb = 0;
    long anonymousKb = 0;

    static ProcessFigures read();
};

}  // namespace Ursa::OS::Wifi
