#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>

#include "tests/support/Netlink.h"

namespace test {

/**
 * The kernel's side of nl80211, as a socket that a program loaded with the nl80211 redirect library
 * meets when CORVID_WIFI_ROOT names `root`. It resolves the family "nl80211" by itself, keeps every
 * other request for the test to look at, and answers it as the test says. Connections are served
 * one message at a time by a thread of its own, which the destructor ends.
 */
class FakeNl80211 {
  public:
    /** What happens on a request: these packets are sent, then the connection is closed or not. */
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
     * Listens on `root`/dev/nl80211, whose folder it creates. Until the test says otherwise, dumps
     * are empty and everything else succeeds.
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

    /** From now on there is no family "nl80211", as in a kernel without the module. */
    void removeFamily();

    /** The requests so far, those for the family's number left out. */
    std::vector<NetlinkRequest> requests() const;

    /** Forgets them, for a caller that makes very many. */
    void forgetRequests();

    /** How often the family's number was asked for. */
    int familyRequests() const;

    /** How many connections were accepted so far, and how many of them are open. */
    int connections() const;
    int openConnections() const;

    /** Waits, at most 30 s, until no connection is open. */
    bool waitUntilClosed() const;

  private:
    void serve_();
    bool serveRequest_(int connection);
    Answer answerTo_(const NetlinkRequest& request);

    const std::string path_;
    android::base::unique_fd listener_;
    android::base::unique_fd stop_;  ///< an eventfd

    mutable std::mutex mutex_;  // for everything down to the thread
    mutable std::condition_variable closed_;
    Answerer answerer_;
    Answerer familyAnswerer_;  ///< empty: the default
    bool hasFamily_ = true;
    std::vector<NetlinkRequest> requests_;
    int familyRequests_ = 0;
    int connections_ = 0;
    int openConnections_ = 0;

    std::thread thread_;  // last: it uses everything above
};

}  // namespace test
