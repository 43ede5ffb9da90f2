// How a request ends: successes, refusals, broken answers and broken connections.

#include <algorithm>
#include <filesystem>
#include <iterator>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "tests/client/nl80211/LibnlFaults.h"
#include "tests/client/nl80211/Nl80211Fixture.h"

namespace Ursa::OS::Wifi {

namespace {

using test::ack;
using test::attribute;
using test::concat;
using test::done;
using test::error;
using test::explainedError;
using test::failNext;
using test::LibnlCall;
using test::terminatedText;
using test::text;

/** NLMSGERR_ATTR_MSG with this payload. */
Bytes reason(const Bytes& payload) { return attribute(NLMSGERR_ATTR_MSG, payload); }

/** Makes an error reply claim that the request which it echoes had this length. */
void setEchoedLength(Bytes& packet, uint32_t length) {
    const Bytes bytes = test::number32(length);
    std::copy(bytes.begin(), bytes.end(), packet.begin() + NLMSG_HDRLEN + sizeof(int32_t));
}

class Answer : public Nl80211Test {
  protected:
    using Packets = std::function<std::vector<Bytes>(const NetlinkRequest&)>;

    /** The packets with the family's number: the reply. */
    static constexpr int kFamilyReceives = 1;

    /** The result of a command that is answered like this. */
    int resultOf(const Packets& packets) {
        kernel_.answer(packets);
        return client_.sendGenericCommand(someCommand());
    }

    /** The operation ends as failed, with this one error line, and leaves nothing behind. */
    void expectFailure(LibnlCall call, const std::string& message, int callsBefore = 0) {
        failNext(call, callsBefore);
        EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
        EXPECT_FALSE(test::isFaultPending());
        EXPECT_THAT(errors(), ElementsAre(message));
        EXPECT_TRUE(kernel_.waitUntilClosed());

        log_.clear();
        failNext(call, callsBefore);
        EXPECT_EQ(client_.getNetInterfaceName(NetInterfaceType::P2P), nullptr);
        EXPECT_FALSE(test::isFaultPending());
        EXPECT_THAT(errors(), ElementsAre(message));
        EXPECT_TRUE(kernel_.waitUntilClosed());

        log_.clear();
        EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0) << "the next one works again";
    }
};

TEST_F(Answer, AcknowledgementEndsTheCommandWithSuccess) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {ack(request)};
              }),
              0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Answer, DataAheadOfTheAcknowledgementIsSkipped) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {test::reply(request, NL80211_CMD_VENDOR,
                                      attribute(NL80211_ATTR_VENDOR_DATA, text("data"))),
                          ack(request)};
              }),
              0);
}

TEST_F(Answer, DataAndAcknowledgementInOnePacketSucceed) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {concat({test::reply(request, NL80211_CMD_VENDOR, {}), ack(request)})};
              }),
              0);
}

TEST_F(Answer, DataAheadOfAnErrorFailsTheCommand) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {test::reply(request, NL80211_CMD_VENDOR, {}), error(request, -EINVAL)};
              }),
              -1);
}

TEST_F(Answer, ErrorWithoutExtendedAckFailsWithoutAKernelReportsLine) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {error(request, -EOPNOTSUPP)};
              }),
              -1);
    ASSERT_EQ(log_.lines().size(), 1U);
    EXPECT_EQ(log_.lines()[0].tag, "CorvidWifi");
    EXPECT_EQ(log_.lines()[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(log_.lines()[0].message, "Nl80211Client: nl80211 response has error code -95");
}

TEST_F(Answer, ErrorFailsAVendorCommand) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {error(request, -EOPNOTSUPP)};
    });
    Nl80211VendorCmdInfo info;
    info.ifname = "lo";
    EXPECT_EQ(client_.sendVendorCommand(info), -1);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -95"));
}

TEST_F(Answer, ErrnoComesBackWithTheResultOfItsOwnCommand) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {request.cmd == NL80211_CMD_VENDOR ? error(request, -EOPNOTSUPP) : ack(request)};
    });
    Nl80211VendorCmdInfo refused;
    refused.ifname = "lo";
    int vendorError = 1;
    int genericError = 1;
    EXPECT_EQ(client_.sendVendorCommand(refused, &vendorError), -1);
    EXPECT_EQ(client_.sendGenericCommand(someCommand(), &genericError), 0);
    EXPECT_EQ(vendorError, -EOPNOTSUPP);
    EXPECT_EQ(genericError, 0);
    failNext(LibnlCall::MessageAlloc);
    EXPECT_EQ(client_.sendGenericCommand(someCommand(), &genericError), -1);
    EXPECT_EQ(genericError, -EIO);
}

TEST_F(Answer, ExtendedAckBehindTheWholeRequestIsLogged) {
    EXPECT_EQ(
        resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {explainedError(request, -EINVAL, reason(terminatedText("bad frame")), false)};
        }),
        -1);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -22"));
    EXPECT_THAT(warnings(), ElementsAre("Nl80211Client: nl80211: kernel reports: bad frame"));
}

TEST_F(Answer, ExtendedAckBehindACappedRequestIsLogged) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {explainedError(request, -EINVAL,
                                         concat({attribute(NLMSGERR_ATTR_OFFS, test::number32(20)),
                                                 reason(terminatedText("bad frame"))}),
                                         true)};
              }),
              -1);
    EXPECT_THAT(warnings(), ElementsAre("Nl80211Client: nl80211: kernel reports: bad frame"));
}

TEST_F(Answer, UnterminatedExtendedAckTextIsReadToTheEndOfItsAttribute) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {explainedError(request, -EINVAL,
                                         concat({reason(text("eightchr")),
                                                 attribute(NLMSGERR_ATTR_COOKIE, text("more"))}),
                                         true)};
              }),
              -1);
    EXPECT_THAT(warnings(), ElementsAre("Nl80211Client: nl80211: kernel reports: eightchr"));
}

TEST_F(Answer, ExtendedAckTextWithANulInsideIsReadToTheNul) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {explainedError(request, -EINVAL, reason({'a', 'b', 0, 'c', 'd'}), true)};
              }),
              -1);
    EXPECT_THAT(warnings(), ElementsAre("Nl80211Client: nl80211: kernel reports: ab"));
}

TEST_F(Answer, EmptyExtendedAckTextLogsNothingBehindTheColon) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {explainedError(request, -EINVAL, reason({}), true)};
              }),
              -1);
    EXPECT_THAT(warnings(), ElementsAre("Nl80211Client: nl80211: kernel reports: "));
}

TEST_F(Answer, AnnouncedExtendedAckThatIsMissingLogsNoReason) {
    for (const bool capped : {false, true}) {
        EXPECT_EQ(resultOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
                      return {explainedError(request, -EINVAL, {}, capped)};
                  }),
                  -1);
    }
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(Answer, ExtendedAckWithoutATextLogsNoReason) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {explainedError(request, -EINVAL,
                                         concat({attribute(NLMSGERR_ATTR_OFFS, test::number32(20)),
                                                 attribute(5, text("unknown"))}),
                                         true)};
              }),
              -1);
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(Answer, BrokenExtendedAckFailsLikeAPlainError) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  Bytes cut = reason(text("cut short"));
                  cut[0] = 250;  // its length
                  return {explainedError(request, -EINVAL, cut, true)};
              }),
              -1);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -22"));
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(Answer, WrongLengthOfTheEchoedRequestIsNotReadBeyondTheMessage) {
    for (const uint32_t length : {0x1000U, 0x7fffffffU, 0xffffffffU}) {
        EXPECT_EQ(resultOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
                      Bytes packet =
                          explainedError(request, -EINVAL, reason(terminatedText("unseen")), false);
                      setEchoedLength(packet, length);
                      return {packet};
                  }),
                  -1);
    }
    EXPECT_THAT(warnings(), IsEmpty());

    // Added to 20 in 32 bits, this length would wrap around to the error code, which is made to
    // look like an explanation of four bytes.
    constexpr int kErrorLikeAttribute = static_cast<int>(0x80000000U | NLMSGERR_ATTR_MSG << 16 | 8);
    EXPECT_EQ(resultOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
                  Bytes packet = explainedError(request, kErrorLikeAttribute, {}, false);
                  setEchoedLength(packet, 0xfffffffcU);
                  return {packet};
              }),
              -1);
    EXPECT_THAT(warnings(), IsEmpty());

    // Too short a length makes the rest of the echo look like attributes: read, but never beyond.
    for (uint32_t length = 0; length < 40; ++length) {
        EXPECT_EQ(resultOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
                      Bytes packet =
                          explainedError(request, -EINVAL, reason(terminatedText("maybe")), false);
                      setEchoedLength(packet, length);
                      return {packet};
                  }),
                  -1);
    }
}

TEST_F(Answer, ErrorRecordCutShortFailsTheCommand) {
    for (const size_t length : {size_t{0}, size_t{4}, size_t{16}}) {
        log_.clear();
        EXPECT_EQ(resultOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
                      return {test::message(request, NLMSG_ERROR, 0, Bytes(length))};
                  }),
                  -1);
        EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has no error code"));
    }
}

TEST_F(Answer, AnswerToAnotherRequestIsSkipped) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  NetlinkRequest other = request;
                  other.sequence += 100;
                  return {error(other, -EBUSY), done(other), ack(request)};
              }),
              0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Answer, GarbageAheadOfTheAcknowledgementIsSkipped) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  Bytes tooLong = ack(request);
                  tooLong[1] = 0x10;  // its length
                  return {{1, 2, 3},         Bytes(15, 0xff), Bytes(64, 0),
                          Bytes(4096, 0xff), tooLong,         ack(request)};
              }),
              0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Answer, PacketLargerThanTheBufferIsSkipped) {
    EXPECT_EQ(resultOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {test::reply(request, NL80211_CMD_VENDOR,
                                      attribute(NL80211_ATTR_VENDOR_DATA, Bytes(40000))),
                          ack(request)};
              }),
              0);
}

TEST_F(Answer, ErrorInTheMiddleOfADumpEndsIt) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {interfaceEntry(request, "p2p0"), error(request, -EINTR)};
    });
    EXPECT_EQ(client_.getNetInterfaceName(NetInterfaceType::P2P), nullptr);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -4"));
}

TEST_F(Answer, HangUpInPlaceOfAnAnswerFailsTheCommand) {
    kernel_.answer([](const NetlinkRequest&) -> test::FakeNl80211::Answer { return {{}, true}; });
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -104"));
}

TEST_F(Answer, HangUpInTheMiddleOfADumpFailsTheQuery) {
    kernel_.answer([](const NetlinkRequest& request) -> test::FakeNl80211::Answer {
        return {{interfaceEntry(request, "p2p0")}, true};
    });
    EXPECT_EQ(client_.getNetInterfaceName(NetInterfaceType::P2P), nullptr);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -104"));
}

TEST_F(Answer, MissingFamilyFailsTheCommandWithTheKernelsError) {
    kernel_.removeFamily();
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -2"));
    EXPECT_EQ(kernel_.requests().size(), 1U) << "sent all the same";
}

TEST_F(Answer, EachOperationUsesAConnectionOfItsOwnAndClosesIt) {
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_TRUE(kernel_.waitUntilClosed());
    EXPECT_EQ(kernel_.connections(), 1);
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_TRUE(kernel_.waitUntilClosed());
    EXPECT_EQ(kernel_.connections(), 2);
    EXPECT_EQ(kernel_.familyRequests(), 2) << "the family is resolved anew";
}

TEST_F(Answer, SuccessAndFailureLeaveNoDescriptorOpen) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_TRUE(kernel_.waitUntilClosed());
    const auto before = descriptors();
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {request.sequence % 2 == 0 ? ack(request) : error(request, -EINVAL)};
    });
    for (int i = 0; i < 100; ++i) {
        client_.sendGenericCommand(someCommand());
    }
    EXPECT_TRUE(kernel_.waitUntilClosed());
    EXPECT_EQ(descriptors(), before);
}

TEST_F(Answer, MissingSocketFailsTheOperation) {
    expectFailure(LibnlCall::SocketAlloc, "Nl80211Client: Failed to allocate netlink socket.");
}

TEST_F(Answer, MissingCallbacksFailTheOperation) {
    expectFailure(LibnlCall::CallbackAlloc, "Nl80211Client: Failed to allocate netlink callback.");
}

TEST_F(Answer, MissingMessageFailsTheOperation) {
    expectFailure(LibnlCall::MessageAlloc, "Nl80211Client: Failed to allocate netlink message.");
}

TEST_F(Answer, FailedSendFailsTheOperation) {
    expectFailure(LibnlCall::Send, "Nl80211Client: Failed to nl_send_auto_complete.\n");
}

TEST_F(Answer, FailedReceiveFailsTheOperation) {
    expectFailure(LibnlCall::Receive,
                  "Nl80211Client: Failed to receive netlink response: Out of memory",
                  kFamilyReceives);
}

TEST_F(Answer, ClosedConnectionFailsTheOperation) {
    expectFailure(LibnlCall::ReceiveNothing,
                  "Nl80211Client: Failed to receive netlink response: connection closed",
                  kFamilyReceives);
}

TEST_F(Answer, FamilyThatWasNotAskedForIsNotReported) {
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);
    EXPECT_THAT(client_.stats().describe().json(), testing::HasSubstr(R"("familyId":28)"));
    failNext(LibnlCall::SocketAlloc);
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
    EXPECT_THAT(client_.stats().describe().json(), testing::HasSubstr(R"("familyId":null)"));
}

TEST_F(Answer, MissingSocketOrMessageFailsVendorCommandAndBandwidth) {
    Nl80211VendorCmdInfo info;
    info.ifname = "lo";
    failNext(LibnlCall::SocketAlloc);
    EXPECT_EQ(client_.sendVendorCommand(info), -1);
    failNext(LibnlCall::MessageAlloc);
    EXPECT_EQ(client_.sendVendorCommand(info), -1);
    kernel_.answer(interfaces({"wlan0"}));
    EXPECT_STREQ(client_.getNetInterfaceName(NetInterfaceType::STA), "wlan0");
    failNext(LibnlCall::SocketAlloc);
    EXPECT_EQ(client_.getStaBandwidth(), 0);
    failNext(LibnlCall::MessageAlloc);
    EXPECT_EQ(client_.getStaBandwidth(), 0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Failed to allocate netlink socket.",
                                      "Nl80211Client: Failed to allocate netlink message.",
                                      "Nl80211Client: Failed to allocate netlink socket.",
                                      "Nl80211Client: Failed to allocate netlink message."));
    EXPECT_TRUE(kernel_.waitUntilClosed());
}

TEST_F(Answer, NumberThatDoesNotFitFailsTheCommandUnsent) {
    Nl80211VendorCmdInfo info;
    info.ifname = "lo";
    failNext(LibnlCall::PutU32);
    EXPECT_EQ(client_.sendVendorCommand(info), -1);
    failNext(LibnlCall::PutU32);
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), -1);
    EXPECT_THAT(kernel_.requests(), IsEmpty());
    EXPECT_TRUE(kernel_.waitUntilClosed());
}

TEST(Nl80211Connection, AbandonedSocketFailsEveryOperation) {
    const test::DeviceRoot root;
    test::LogCapture log;
    {
        // A socket file that its owner left behind.
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (root.path() + "/dev/nl80211").copy(address.sun_path, sizeof(address.sun_path) - 1);
        const android::base::unique_fd left(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(left.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    Nl80211Client client;
    EXPECT_EQ(client.getNetInterfaceName(NetInterfaceType::STA), nullptr);
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR),
                ElementsAre("Nl80211Client: Failed to connect to generic netlink."));
    EXPECT_EQ(client.getStaBandwidth(), 0);
    Nl80211GenericCmdInfo info;
    info.ifname = "lo";
    EXPECT_EQ(client.sendGenericCommand(info), -1);
}

}  // namespace

}  // namespace Ursa::OS::Wifi
