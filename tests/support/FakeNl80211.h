#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/FakeNl80211Kernel.h"
#include "sim/LoopThread.h"
#include "sim/RadioState.h"
#include "sim/Record.h"
#include "tests/support/Netlink.h"

namespace test {

/**
 * A simulated kernel side of nl80211, on a thread of its own, for a program with the nl80211
 * redirect library and CORVID_WIFI_ROOT set to `root`. It records every request except those for
 * the family's number. Tests build its answers byte by byte, so that they do not depend on the
 * netlink library that the client uses. Any thread.
 */
class FakeNl80211 {
  public:
    /** The packets that answer a request, and whether the connection is closed after them. */
    struct Answer {
        std::vector<Bytes> packets;
        bool hangUp = false;
        bool endless = false;  ///< the packets are sent again and again until the client closes
    };
    /** Called on the server's thread. */
    using Answerer = std::function<Answer(const NetlinkRequest&)>;

    /** The number that the family is resolved to. */
    static constexpr uint16_t kFamily = 0x1c;

    /**
     * Listens on `root`/dev/nl80211, whose folder it creates. By default dumps are empty and
     * everything else succeeds.
     */
    explicit FakeNl80211(const std::string& root);
    ~FakeNl80211();

    FakeNl80211(const FakeNl80211&) = delete;
    FakeNl80211& operator=(const FakeNl80211&) = delete;

    /** Answers the requests that follow. */
    void answer(Answerer answerer);

    /** Answers every request that follows with the packets made for it. */
    void answer(std::function<std::vector<Bytes>(const NetlinkRequest&)> packets);

    /** Answers every request for the family's number that follows, in place of the default. */
    void answerFamily(Answerer answerer);

    /** The simulated kernel answers every request that follows, from its own state. */
    void answerLikeTheSimulated();

    /** From now on there is no family "nl80211", as in a kernel without the module. */
    void removeFamily();

    /** Changes what the simulated kernel answers, and from which state. */
    void change(const std::function<void(sim::FakeNl80211Kernel&, sim::RadioState&)>& change);

    /** The requests so far, those for the family's number left out. */
    std::vector<NetlinkRequest> requests() const;

    /** Forgets them, for a caller that makes very many. */
    void forgetRequests();

    /** How often the family's number was asked for. */
    int familyRequests() const;

    /** How many connections were accepted so far, and how many of them are open. */
    int connections() const;
    int openConnections() const;

    /** Waits, at most for kPatience, until no connection is open. */
    bool waitUntilClosed() const;

  private:
    std::optional<sim::NetlinkAnswer> script_(const nlmsghdr& header);

    mutable std::mutex mutex_;  // for everything down to the thread
    mutable std::condition_variable closed_;
    Answerer answerer_;  ///< null: the simulated kernel answers
    Answerer familyAnswerer_;
    std::vector<NetlinkRequest> requests_;
    int familyRequests_ = 0;
    int connections_ = 0;
    int openConnections_ = 0;

    sim::LoopThread thread_;  // the rest is for this thread only
    sim::RadioState radio_;
    sim::Recorder recorder_;
    sim::FakeNl80211Kernel kernel_;
};

}  // namespace test
