#include "sim/Expectations.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace sim {

namespace {
/** More than any test looks back at; keeps a long session's memory flat. */
constexpr size_t kMostRecent = 50000;
}  // namespace

Expectations::Expectations(EventLoop& loop, Recorder& recorder) : loop_(loop) {
    recorder.addSink([this](const Record& record) { onRecord(record); });
}

bool Expectations::matches(const Expectation& expectation, const Record& record) {
    return record.kind == expectation.kind &&
           (record.socket + " " + record.text).find(expectation.text) != std::string::npos;
}

std::string Expectations::text(const Expectation& expectation) {
    char seconds[32];
    std::snprintf(seconds, sizeof(seconds), "%g",
                  std::chrono::duration<double>(expectation.within).count());
    return expectation.kind + " with '" + expectation.text + "' within " + seconds + "s";
}

void Expectations::add(const Expectation& expectation, OnSettled onSettled) {
    const bool seen = std::any_of(recent_.begin(), recent_.end(), [&](const Record& record) {
        return matches(expectation, record);
    });
    if (seen) {
        onSettled(expectation.unwanted ? "an unwanted " + text(expectation) : "");
        return;
    }
    const auto pending = pending_.insert(pending_.end(), {expectation, std::move(onSettled), 0});
    pending->deadline = loop_.after(expectation.within, [this, pending] {
        settle(pending,
               pending->expectation.unwanted ? "" : "there was no " + text(pending->expectation));
    });
}

void Expectations::onRecord(const Record& record) {
    recent_.push_back(record);
    if (recent_.size() > kMostRecent) {
        recent_.pop_front();
    }
    for (auto pending = pending_.begin(); pending != pending_.end();) {
        const auto current = pending++;
        if (matches(current->expectation, record)) {
            settle(current, current->expectation.unwanted
                                ? "an unwanted " + text(current->expectation)
                                : "");
        }
    }
}

void Expectations::settle(std::list<Pending>::iterator pending, const std::string& failure) {
    loop_.cancel(pending->deadline);
    const OnSettled onSettled = std::move(pending->onSettled);
    pending_.erase(pending);
    onSettled(failure);
}

}  // namespace sim
