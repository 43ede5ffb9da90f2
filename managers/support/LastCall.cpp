#include "managers/support/LastCall.h"

#include <utility>

namespace Ursa::OS::Wifi {

void LastCall::begin(std::string text) {
    *state_.lock() = {Moment::now(), 0, CommandOutcome::Pending, std::move(text), {}};
}

void LastCall::end(CommandOutcome outcome, std::string reason) {
    const auto state = state_.lock();
    state->durationNs = Moment::monotonicNow() - state->at.monotonicNs;
    state->outcome = outcome;
    state->reason = std::move(reason);
}

StateTree LastCall::describe() const {
    const State last = *state_.lock();
    if (!last.at) {
        return {};
    }
    const bool isPending = last.outcome == CommandOutcome::Pending;
    const int64_t durationNs =
        isPending ? Moment::monotonicNow() - last.at.monotonicNs : last.durationNs;
    StateTree call = StateTree::parts();
    call.set("at", last.at);
    call.set("text", last.text);
    call.set("outcome", toString(last.outcome));
    call.set("reply", last.reason);
    call.set("durationUs", durationNs / 1000);
    return call.asLine(last.text + "  -> " + toString(last.outcome) +
                       (last.reason.empty() ? "" : " (" + last.reason + ")") + ", " +
                       durationText(durationNs) + ", " + momentText(last.at));
}

}  // namespace Ursa::OS::Wifi
