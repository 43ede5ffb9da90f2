#include "sim/Expectations.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace sim {

namespace {
/** More than any test looks back at; keeps a long session's memory flat. */
constexpr size_t kMostRecent = 50000;
}  // namespace

Expectations::Expectations(EventLoop& loop, Recorder& recorder) : mLoop(loop) {
    recorder.addSink([this](const Record& record) { onRecord(record); });
}

bool Expectations::matches(const Expect& expect, const Record& record) {
    return record.kind == expect.kind &&
           (record.socket + " " + record.text).find(expect.text) != std::string::npos;
}

std::string Expectations::text(const Expect& expect) {
    char seconds[32];
    std::snprintf(seconds, sizeof(seconds), "%g",
                  std::chrono::duration<double>(expect.within).count());
    return expect.kind + " with '" + expect.text + "' within " + seconds + "s";
}

void Expectations::add(const Expect& expect, OnSettled onSettled) {
    const bool seen = std::any_of(mRecent.begin(), mRecent.end(),
                                  [&](const Record& record) { return matches(expect, record); });
    if (seen) {
        onSettled(expect.unwanted ? "an unwanted " + text(expect) : "");
        return;
    }
    const auto pending = mPending.insert(mPending.end(), {expect, std::move(onSettled), 0});
    pending->deadline = mLoop.after(expect.within, [this, pending] {
        settle(pending, pending->expect.unwanted ? "" : "there was no " + text(pending->expect));
    });
}

void Expectations::onRecord(const Record& record) {
    mRecent.push_back(record);
    if (mRecent.size() > kMostRecent) {
        mRecent.pop_front();
    }
    for (auto pending = mPending.begin(); pending != mPending.end();) {
        const auto current = pending++;
        if (matches(current->expect, record)) {
            settle(current, current->expect.unwanted ? "an unwanted " + text(current->expect) : "");
        }
    }
}

void Expectations::settle(std::list<Pending>::iterator pending, const std::string& failure) {
    mLoop.cancel(pending->deadline);
    const OnSettled onSettled = std::move(pending->onSettled);
    mPending.erase(pending);
    onSettled(failure);
}

}  // namespace sim
