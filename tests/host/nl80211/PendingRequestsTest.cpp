#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host/nl80211/PendingRequests.h"

namespace host {
namespace {

/** One message without a payload. */
std::string message(uint32_t sequence, uint16_t flags, uint16_t type = 0x1c) {
    nlmsghdr header = {};
    header.nlmsg_len = sizeof(header);
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

class PendingRequestsTest : public testing::Test {
  protected:
    void sent(const std::string& packet) { requests_.sent(packet.data(), packet.size()); }
    void notSent(const std::string& packet) { requests_.notSent(packet.data(), packet.size()); }
    void received(const std::string& packet) { requests_.received(packet.data(), packet.size()); }

    /** The sequence number of the request that waits longest; 0 when none does. */
    uint32_t oldest() const {
        const std::optional<nlmsghdr> header = requests_.oldest();
        return header ? header->nlmsg_seq : 0;
    }

    static constexpr uint16_t kRequest = NLM_F_REQUEST;
    static constexpr uint16_t kAckRequest = NLM_F_REQUEST | NLM_F_ACK;
    static constexpr uint16_t kDumpRequest = NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP;

    PendingRequests requests_;
};

TEST_F(PendingRequestsTest, NothingIsPendingAtFirst) {
    EXPECT_EQ(oldest(), 0U);
    received(message(1, 0, NLMSG_ERROR));
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, AcknowledgedRequestIsNoLongerPending) {
    sent(message(1, kAckRequest));
    EXPECT_EQ(oldest(), 1U);
    received(message(1, 0));  // data before the acknowledgement
    EXPECT_EQ(oldest(), 1U);
    received(message(1, 0, NLMSG_ERROR));
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, DumpIsPendingUntilItsEnd) {
    sent(message(1, NLM_F_REQUEST | NLM_F_DUMP));
    received(message(1, NLM_F_MULTI));
    EXPECT_EQ(oldest(), 1U);
    received(message(1, NLM_F_MULTI) + message(1, NLM_F_MULTI, NLMSG_DONE));
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, RequestWithoutAcknowledgementIsAnsweredByAnyMessage) {
    sent(message(1, kRequest));
    received(message(2, 0));
    EXPECT_EQ(oldest(), 1U);
    received(message(1, 0));
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, AnswersInAnyOrderEndTheirRequests) {
    sent(message(1, kDumpRequest));
    sent(message(2, kAckRequest) + message(3, kAckRequest));
    received(message(2, 0, NLMSG_ERROR));
    EXPECT_EQ(oldest(), 1U);
    received(message(1, NLM_F_MULTI, NLMSG_DONE));
    EXPECT_EQ(oldest(), 3U);
    requests_.dropOldest();
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, PacketThatWasNotSentIsNotPending) {
    sent(message(1, kAckRequest));
    sent(message(2, kAckRequest) + message(3, kAckRequest));
    notSent(message(2, kAckRequest) + message(3, kAckRequest));
    EXPECT_EQ(oldest(), 1U);
    requests_.dropOldest();
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, MessageThatIsNoRequestIsNotPending) {
    sent(message(1, 0));
    sent("");
    sent("short");
    EXPECT_EQ(oldest(), 0U);
}

TEST_F(PendingRequestsTest, LengthThatDoesNotFitEndsThePacket) {
    for (const uint32_t length : {0U, 15U, 17U, 0xffffffffU}) {
        std::string packet = message(1, kAckRequest);
        memcpy(packet.data(), &length, sizeof(length));
        sent(packet);
        EXPECT_EQ(oldest(), 0U) << length;
        sent(message(2, kAckRequest));
        memcpy(packet.data() + 4, "\2\0", 2);  // NLMSG_ERROR
        memcpy(packet.data() + 8, "\2", 1);    // about request 2
        received(packet);
        EXPECT_EQ(oldest(), 2U) << length;
        requests_.dropOldest();
    }
}

TEST_F(PendingRequestsTest, LastMessageWithoutItsPaddingIsRead) {
    std::string packet = message(1, kAckRequest) + "x";
    const uint32_t length = 17;
    memcpy(packet.data(), &length, sizeof(length));
    sent(packet);
    EXPECT_EQ(oldest(), 1U);
}

TEST_F(PendingRequestsTest, RequestsThatAreNeverAnsweredDoNotPileUp) {
    for (uint32_t i = 1; i <= PendingRequests::kMax + 10; i++) {
        sent(message(i, kRequest));
    }
    EXPECT_EQ(oldest(), 11U);
}

}  // namespace
}  // namespace host
