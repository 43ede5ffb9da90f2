// Requests that no answer ends: the exchange fails when its time is up, whatever else the peer
// sends.

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include <linux/genetlink.h>
#include <linux/netlink.h>

#include "tests/client/nl80211/LibnlFaults.h"
#include "tests/client/nl80211/Nl80211Fixture.h"
#include "tests/support/Emulated.h"

using namespace std::chrono_literals;

namespace Ursa::OS::Wifi {

namespace {

using test::ack;
using test::attribute;
using test::concat;
using test::done;
using test::error;
using test::FakeNl80211;
using test::message;
using test::number32;

/** An emulated program on a busy machine needs long for a request and its answer. */
constexpr std::chrono::milliseconds kImpatience{test::kEmulated ? 2000 : 500};

const std::string kTimedOut = "Nl80211Client: Failed to receive netlink response: timed out";
const std::string kNoMemory = "Nl80211Client: Failed to receive netlink response: Out of memory";
const std::string kNoSuchFamily = "Nl80211Client: nl80211 response has error code -2";

/** `request` as another one, whose answers are not this one's. */
NetlinkRequest another(NetlinkRequest request) {
    request.sequence += 100;
    return request;
}

/** The controller's answer with the family's number, which an ACK follows. */
Bytes familyReply(const NetlinkRequest& request) {
    return test::reply(request, CTRL_CMD_NEWFAMILY,
                       attribute(CTRL_ATTR_FAMILY_ID, test::number16(FakeNl80211::kFamily)));
}

void handle(int /*signal*/) {}

/** The thread that makes it handles a signal every 5 ms, for 10 s at most. */
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action = {};
        action.sa_handler = handle;
        action.sa_flags = SA_RESTART;
        sigaction(SIGUSR2, &action, &before_);
        thread_ = std::thread([this, thread = pthread_self()] {
            for (int i = 0; i < 2000 && !ended_; ++i) {
                std::this_thread::sleep_for(5ms);
                pthread_kill(thread, SIGUSR2);
                ++count_;
            }
        });
    }
    ~Interruptions() {
        end();
        sigaction(SIGUSR2, &before_, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

    void waitForMore(int count) const {
        for (const int wanted = count_ + count; count_ < wanted;) {
            std::this_thread::sleep_for(1ms);
        }
    }

    /** Returns how many there were. */
    int end() {
        ended_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return count_;
    }

  private:
    struct sigaction before_ = {};
    std::atomic<bool> ended_{false};
    std::atomic<int> count_{0};
    std::thread thread_;
};

/** A client that waits for the answer to a request no longer than kImpatience. */
class ExchangeEnd : public Nl80211Test {
  protected:
    using Packets = std::function<std::vector<Bytes>(const NetlinkRequest&)>;

    int commandAnsweredBy(const Packets& packets) {
        kernel_.answer(packets);
        return impatient_.sendGenericCommand(someCommand());
    }

    /** The bandwidth when the interface is wlan0 and the station dump is answered like this. */
    int bandwidthAnsweredBy(const Packets& stations) {
        kernel_.answer([stations](const NetlinkRequest& request) {
            return request.cmd == NL80211_CMD_GET_STATION ? stations(request)
                                                          : interfaces({"wlan0"})(request);
        });
        return impatient_.getStaBandwidth();
    }

    /** A request for the family's number that is answered like this, then a command. */
    int commandAfterFamilyAnsweredBy(const FakeNl80211::Answerer& family) {
        kernel_.answerFamily(family);
        // What the kernel makes of the number of a family that does not exist.
        kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {error(request, -ENOENT)};
        });
        return impatient_.sendGenericCommand(someCommand());
    }

    /** The exchange before left nothing behind: connections, or a state that spoils the next. */
    void expectNextCommandToSucceed() {
        EXPECT_TRUE(kernel_.waitUntilClosed());
        log_.clear();
        Nl80211Client& patient = client_;
        kernel_.answer(
            [](const NetlinkRequest& request) -> std::vector<Bytes> { return {ack(request)}; });
        EXPECT_EQ(patient.sendGenericCommand(someCommand()), 0);
        EXPECT_THAT(log_.lines(), IsEmpty());
    }

    Nl80211Client impatient_{kImpatience};
};

TEST_F(ExchangeEnd, SilenceFailsTheCommandWhenItsTimeIsUp) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(commandAnsweredBy([](const NetlinkRequest&) { return std::vector<Bytes>(); }), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, kImpatience);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, SignalsDoNotProlongTheWaitForAnAnswer) {
    Interruptions interruptions;
    EXPECT_EQ(commandAnsweredBy([](const NetlinkRequest&) { return std::vector<Bytes>(); }), -1);
    EXPECT_LT(interruptions.end(), 1000) << "the wait ended when the signals did";
    EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, SignalsDoNotProlongTheWaitForTheFamily) {
    Interruptions interruptions;
    EXPECT_EQ(
        commandAfterFamilyAnsweredBy([](const NetlinkRequest&) { return FakeNl80211::Answer(); }),
        -1);
    EXPECT_LT(interruptions.end(), 1000) << "the wait ended when the signals did";
    EXPECT_THAT(errors(), ElementsAre(kTimedOut, kNoSuchFamily));
}

TEST_F(ExchangeEnd, SignalsDoNotEndTheWaitEarly) {
    const Interruptions interruptions;
    kernel_.answer([&](const NetlinkRequest& request) -> std::vector<Bytes> {
        interruptions.waitForMore(10);
        return {ack(request)};
    });
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExchangeEnd, AcknowledgementOfAnotherRequestOnlyFailsTheCommand) {
    EXPECT_EQ(commandAnsweredBy([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {ack(another(request))};
              }),
              -1);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, AnswerShorterThanAHeaderOnlyFailsTheCommand) {
    EXPECT_EQ(commandAnsweredBy([](const NetlinkRequest&) -> std::vector<Bytes> {
                  return {{1, 2, 3}};
              }),
              -1);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, ErrorRecordWithAPositiveCodeFailsTheCommandAtOnce) {
    // With a client that would wait for seconds.
    for (const int code : {1, 19, 0x7fffffff}) {
        log_.clear();
        kernel_.answer([&](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {error(request, code)};
        });
        EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
        EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code " +
                                          std::to_string(code)));
    }
}

TEST_F(ExchangeEnd, NoopOrOverrunAheadOfTheAcknowledgementFailsTheCommandAtOnce) {
    for (const uint16_t type : {uint16_t{NLMSG_NOOP}, uint16_t{NLMSG_OVERRUN}}) {
        for (const bool onePacket : {false, true}) {
            log_.clear();
            kernel_.answer([&](const NetlinkRequest& request) -> std::vector<Bytes> {
                const Bytes control = message(request, type, 0, number32(0));
                return onePacket ? std::vector<Bytes>{concat({control, ack(request)})}
                                 : std::vector<Bytes>{control, ack(request)};
            });
            EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
            EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response is a netlink "
                                              "control message of type " +
                                              std::to_string(type)));
        }
    }
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, NoopOfAnotherRequestIsSkipped) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {message(another(request), NLMSG_NOOP, 0, number32(0)),
                concat({message(another(request), NLMSG_OVERRUN, 0, number32(0)), ack(request)})};
    });
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExchangeEnd, ErrorRecordOfAnotherRequestThatIsCutShortIsSkipped) {
    for (const bool onePacket : {false, true}) {
        kernel_.answer([&](const NetlinkRequest& request) -> std::vector<Bytes> {
            const Bytes cut = message(another(request), NLMSG_ERROR, 0, {});
            return onePacket ? std::vector<Bytes>{concat({cut, ack(request)})}
                             : std::vector<Bytes>{cut, ack(request)};
        });
        EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExchangeEnd, BrokenStationInThePacketOfTheDumpsEndEndsTheExchangeAtOnce) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        if (request.cmd != NL80211_CMD_GET_STATION) {
            return interfaces({"wlan0"})(request);
        }
        return {concat({test::dumpEntry(request, NL80211_CMD_NEW_STATION, {}), done(request)})};
    });
    EXPECT_EQ(client_.getStaBandwidth(), 0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: No STA info in netlink response"));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, DumpWithoutAnEndFailsThoughEntriesKeepComing) {
    kernel_.answer([](const NetlinkRequest& request) -> FakeNl80211::Answer {
        return {{interfaceEntry(request, "p2p0")}, false, true};
    });
    EXPECT_EQ(impatient_.getNetInterfaceName(NetInterfaceType::P2P), nullptr);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, StationDumpWithoutAnEndLeavesTheBandwidthUnknown) {
    EXPECT_EQ(bandwidthAnsweredBy([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  const Bytes rate = attribute(NL80211_STA_INFO_TX_BITRATE | NLA_F_NESTED, {});
                  return {test::dumpEntry(request, NL80211_CMD_NEW_STATION,
                                          attribute(NL80211_ATTR_STA_INFO | NLA_F_NESTED, rate))};
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, IrrelevantAnswersWithoutEndDoNotProlongTheWait) {
    const std::vector<Packets> kinds = {
        [](const NetlinkRequest& request) -> std::vector<Bytes> { return {ack(another(request))}; },
        [](const NetlinkRequest&) -> std::vector<Bytes> {
            return {{1, 2, 3}};
        },
        [](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {test::reply(request, NL80211_CMD_VENDOR, {})};
        },
        [](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {test::reply(request, NL80211_CMD_VENDOR, Bytes(40000))};
        },
    };
    for (const Packets& packets : kinds) {
        log_.clear();
        kernel_.answer([&](const NetlinkRequest& request) -> FakeNl80211::Answer {
            return {packets(request), false, true};
        });
        EXPECT_EQ(impatient_.sendGenericCommand(someCommand()), -1);
        EXPECT_THAT(errors(), ElementsAre(kTimedOut));
    }
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, FamilyRequestAsksForItsReplyAlone) {
    int flags = 0;
    commandAfterFamilyAnsweredBy([&](const NetlinkRequest& request) {
        flags = request.flags;
        return FakeNl80211::Answer{{error(request, -ENOENT)}};
    });
    EXPECT_EQ(flags, NLM_F_REQUEST) << "an acknowledgement would be one more packet to receive";
}

TEST_F(ExchangeEnd, FamilyRequestThatIsOnlyAcknowledgedFailsTheCommand) {
    EXPECT_EQ(commandAfterFamilyAnsweredBy([](const NetlinkRequest& request) {
                  return FakeNl80211::Answer{{ack(request)}};
              }),
              -1);
    EXPECT_THAT(errors(), ElementsAre(kNoSuchFamily));
    EXPECT_EQ(kernel_.requests().size(), 1U) << "sent all the same";
}

TEST_F(ExchangeEnd, FamilyRequestThatIsNotAnsweredFailsTheCommand) {
    EXPECT_EQ(
        commandAfterFamilyAnsweredBy([](const NetlinkRequest&) { return FakeNl80211::Answer(); }),
        -1);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut, kNoSuchFamily));
}

TEST_F(ExchangeEnd, FamilyReplyWithoutEndFailsTheCommand) {
    EXPECT_EQ(commandAfterFamilyAnsweredBy([](const NetlinkRequest& request) {
                  return FakeNl80211::Answer{
                      {message(request, GENL_ID_CTRL, NLM_F_MULTI, number32(CTRL_CMD_NEWFAMILY))},
                      false,
                      true};
              }),
              -1);
    EXPECT_THAT(errors().front(), kTimedOut);
}

TEST_F(ExchangeEnd, TimeThatTheFamilyTookIsNotTakenFromTheCommand) {
    Nl80211Client client(1000ms);
    kernel_.answerFamily([](const NetlinkRequest& request) -> FakeNl80211::Answer {
        std::this_thread::sleep_for(500ms);
        return {{familyReply(request), ack(request)}};
    });
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        std::this_thread::sleep_for(600ms);
        return {ack(request)};
    });
    EXPECT_EQ(client.sendGenericCommand(someCommand()), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExchangeEnd, AnswersToAnotherRequestDoNotEndTheRequestForTheFamily) {
    const Packets foreign = [](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {message(another(request), NLMSG_ERROR, 0, {}), ack(another(request)),
                error(another(request), -ENOENT), familyReply(another(request))};
    };
    for (const bool onePacket : {false, true}) {
        kernel_.answerFamily([&](const NetlinkRequest& request) -> FakeNl80211::Answer {
            std::vector<Bytes> packets = foreign(request);
            packets.push_back(familyReply(request));
            if (onePacket) {
                packets = {concat(packets)};
            }
            for (const Bytes& packet : foreign(request)) {
                packets.push_back(packet);
            }
            packets.push_back(ack(request));
            return {packets};
        });
        EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
        ASSERT_EQ(kernel_.requests().size(), 1U);
        EXPECT_EQ(kernel_.requests()[0].type, FakeNl80211::kFamily);
        EXPECT_THAT(log_.lines(), IsEmpty());
        kernel_.forgetRequests();
    }
}

TEST_F(ExchangeEnd, MessageThatCannotBeKeptInThePacketOfTheDumpsEndIsLogged) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {concat({interfaceEntry(request, "p2p0"), done(request)})};
    });
    test::failNext(test::LibnlCall::Convert, 1);  // after the family's reply
    EXPECT_EQ(client_.getNetInterfaceName(NetInterfaceType::P2P), nullptr);
    EXPECT_FALSE(test::isFaultPending());
    EXPECT_THAT(errors(), ElementsAre(kNoMemory));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, AcknowledgementThatCannotBeKeptFailsTheCommandAtOnce) {
    kernel_.answer(
        [](const NetlinkRequest& request) -> std::vector<Bytes> { return {ack(request)}; });
    test::failNext(test::LibnlCall::Convert, 1);  // after the family's reply
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
    EXPECT_FALSE(test::isFaultPending());
    EXPECT_THAT(errors(), ElementsAre(kNoMemory));
    expectNextCommandToSucceed();
}

TEST_F(ExchangeEnd, AnswerThatCameWhileTheProcessWasStoppedSucceeds) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {test::reply(request, NL80211_CMD_VENDOR, {}), ack(request)};
    });
    test::pauseAfterReceive(kImpatience + 10ms, 1);  // after the family's reply
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(impatient_.sendGenericCommand(someCommand()), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, kImpatience);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExchangeEnd, SilenceToEverythingLeavesNoInterfaceName) {
    kernel_.answerFamily([](const NetlinkRequest&) { return FakeNl80211::Answer(); });
    kernel_.answer([](const NetlinkRequest&) { return FakeNl80211::Answer(); });
    EXPECT_EQ(impatient_.getNetInterfaceName(NetInterfaceType::STA), nullptr);
    EXPECT_THAT(errors(), ElementsAre(kTimedOut, kTimedOut));
}

TEST_F(ExchangeEnd, AnswerThatComesLateButInTimeSucceeds) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        std::this_thread::sleep_for(100ms);
        return {ack(request)};
    });
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace

}  // namespace Ursa::OS::Wifi
