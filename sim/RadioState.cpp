#include "sim/RadioState.h"

#include <algorithm>
#include <cmath>

namespace sim {

void Signal::walk(int fromDbm, int toDbm, Clock::time_point begin, Clock::duration over) {
    from_ = fromDbm;
    to_ = toDbm;
    begin_ = begin;
    over_ = over;
}

int Signal::dbm(Clock::time_point now) const {
    if (now >= begin_ + over_) {
        return to_;
    }
    const std::chrono::duration<double> passed = now - begin_;
    const double part = std::max(0.0, passed / over_);
    return static_cast<int>(std::lround(from_ + (to_ - from_) * part));
}

void RadioState::addInterface(const std::string& name) {
    if (std::find(interfaces.begin(), interfaces.end(), name) == interfaces.end()) {
        interfaces.push_back(name);
    }
}

void RadioState::removeInterface(const std::string& name) {
    interfaces.erase(std::remove(interfaces.begin(), interfaces.end(), name), interfaces.end());
}

std::string widthText(Width width) {
    switch (width) {
        case Width::MHz20:
            return "20";
        case Width::MHz40:
            return "40";
        case Width::MHz80:
            return "80";
        case Width::MHz80Plus80:
            return "80+80";
        case Width::MHz160:
            return "160";
    }
    return "";
}

int widthMHz(Width width) {
    switch (width) {
        case Width::MHz20:
            return 20;
        case Width::MHz40:
            return 40;
        case Width::MHz80:
        case Width::MHz80Plus80:
            return 80;
        case Width::MHz160:
            return 160;
    }
    return 0;
}

int centreMHz(int frequencyMHz, Width width) {
    const int channels = widthMHz(width) / 20;
    if (channels == 1) {
        return frequencyMHz;
    }
    if (frequencyMHz < 5000) {
        return frequencyMHz + 10;  // 40 MHz with the second channel above
    }
    // Where the blocks of bonded channels begin: 6 GHz and the three stretches of 5 GHz.
    int first = 5180;
    for (const int begin : {5500, 5745, 5955}) {
        first = frequencyMHz >= begin ? begin : first;
    }
    const int block = (frequencyMHz - first) / 20 / channels;
    return first + block * channels * 20 + (channels - 1) * 10;
}

}  // namespace sim
