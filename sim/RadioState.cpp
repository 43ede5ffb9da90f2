#include "sim/RadioState.h"

#include <algorithm>
#include <cmath>

namespace sim {

void Signal::walk(int fromDbm, int toDbm, Clock::time_point begin, Clock::duration over) {
    mFrom = fromDbm;
    mTo = toDbm;
    mBegin = begin;
    mOver = over;
}

int Signal::dbm(Clock::time_point now) const {
    if (now >= mBegin + mOver) {
        return mTo;
    }
    const std::chrono::duration<double> passed = now - mBegin;
    const double part = std::max(0.0, passed / mOver);
    return static_cast<int>(std::lround(mFrom + (mTo - mFrom) * part));
}

void RadioState::addInterface(const std::string& name) {
    if (std::find(interfaces.begin(), interfaces.end(), name) == interfaces.end()) {
        interfaces.push_back(name);
    }
}

void RadioState::removeInterface(const std::string& name) {
    interfaces.erase(std::remove(interfaces.begin(), interfaces.end(), name), interfaces.end());
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
