#include <chrono>

#include "managers/TelemetryManager.h"
#include "managers/support/TelemetryEventLogger.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class TelemetryEventLoggerTest : public testing::Test {
  protected:
    test::DeviceRoot root_;
    test::LogCapture log_;
};

int64_t nowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<milliseconds>(now).count();
}

TEST_F(TelemetryEventLoggerTest, ReportsAStationEvent) {
    const auto stats = test::startRecordingStats();
    TelemetryEventLogger logger(TelemetryEventType::STA_CONNECTED);
    EXPECT_TRUE(logger.reportStaManagerEvent(5180, -50));

    EXPECT_THAT(stats->reports(), ElementsAre("116183 \"WIFI_STA_CONNECTED\" 5180 -50"));
    EXPECT_EQ(stats->atoms()[0].reverseDomainName, "com.corvid.os");
    EXPECT_THAT(log_.messages(ANDROID_LOG_INFO),
                ElementsAre("TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-50",
                            "TelemetryEventLogger: Reporting vendor atom 116183 to telemetry "
                            "service"));
}

TEST_F(TelemetryEventLoggerTest, ReportsAMipiClockEvent) {
    const auto stats = test::startRecordingStats();
    EXPECT_TRUE(
        TelemetryEventLogger(TelemetryEventType::MIPI_CLOCK).reportMipiClockManagerEvent(true, 7));
    EXPECT_TRUE(
        TelemetryEventLogger(TelemetryEventType::MIPI_CLOCK).reportMipiClockManagerEvent(false, 0));

    EXPECT_THAT(stats->reports(),
                ElementsAre("119925 \"MIPI_CLOCK_EVENT\" 1 7", "119925 \"MIPI_CLOCK_EVENT\" 0 0"));
    EXPECT_EQ(stats->atoms()[0].reverseDomainName, "com.corvid.os");
    EXPECT_THAT(log_.messages(ANDROID_LOG_INFO),
                ElementsAre("TelemetryEventLogger: Report MIPI Manager event: status:1 clock:7",
                            "TelemetryEventLogger: Reporting vendor atom 119925 to telemetry "
                            "service",
                            "TelemetryEventLogger: Report MIPI Manager event: status:0 clock:0",
                            "TelemetryEventLogger: Reporting vendor atom 119925 to telemetry "
                            "service"));
}

TEST_F(TelemetryEventLoggerTest, EveryTypeHasItsNameAndAnyOtherNumberIsUnknown) {
    const auto stats = test::startRecordingStats();
    for (const int type : {0, 1, 2, 3, 4, 5, 7}) {
        TelemetryEventLogger(static_cast<TelemetryEventType>(type)).reportStaManagerEvent(-1, -1);
    }
    EXPECT_THAT(
        stats->reports(),
        ElementsAre("116183 \"UNKNOWN\" -1 -1", "116183 \"WIFI_STA_CONNECTED\" -1 -1",
                    "116183 \"WIFI_STA_CHANNEL_SWITCH\" -1 -1",
                    "116183 \"WIFI_STA_DISCONNECTED\" -1 -1", "116183 \"MIPI_CLOCK_EVENT\" -1 -1",
                    "116183 \"UNKNOWN\" -1 -1", "116183 \"UNKNOWN\" -1 -1"));
}

TEST_F(TelemetryEventLoggerTest, TheFirstValueIsTheLow32BitsOfTheTimeInMilliseconds) {
    const auto stats = test::startRecordingStats();
    const auto before = static_cast<uint32_t>(nowMs());
    TelemetryEventLogger(TelemetryEventType::STA_CONNECTED).reportStaManagerEvent(-1, -1);
    const auto after = static_cast<uint32_t>(nowMs());
    // As a difference, which is right across the wrap too.
    const auto value = static_cast<uint32_t>(stats->atoms().at(0).values[0].intValue());
    EXPECT_LE(value - before, after - before);
}

TEST_F(TelemetryEventLoggerTest, ATextThatIsAddedComesBeforeTheReportsOwnValues) {
    const auto stats = test::startRecordingStats();
    TelemetryEventLogger logger(TelemetryEventType::STA_DISCONNECTED);
    logger.addAtomValue("why");
    logger.reportStaManagerEvent(-1, -1);
    EXPECT_THAT(stats->reports(), ElementsAre("116183 \"WIFI_STA_DISCONNECTED\" \"why\" -1 -1"));
}

TEST_F(TelemetryEventLoggerTest, AMissingServiceIsAnErrorAndFalse) {
    EXPECT_FALSE(
        TelemetryEventLogger(TelemetryEventType::STA_CONNECTED).reportStaManagerEvent(5180, -50));
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                ElementsAre("TelemetryEventLogger: Stats HAL is unavailable!"));
    EXPECT_THAT(log_.messages(ANDROID_LOG_INFO),
                ElementsAre("TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-50"));
}

TEST_F(TelemetryEventLoggerTest, AFailedCallIsFalse) {
    const auto stats = test::startRecordingStats();
    stats->breakTransport();
    EXPECT_FALSE(
        TelemetryEventLogger(TelemetryEventType::STA_CONNECTED).reportStaManagerEvent(5180, -50));
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR), IsEmpty());
}

TEST_F(TelemetryEventLoggerTest, LooksTheServiceUpAnewForEveryReport) {
    EXPECT_FALSE(
        TelemetryEventLogger(TelemetryEventType::STA_CONNECTED).reportStaManagerEvent(-1, -1));
    const auto stats = test::startRecordingStats();
    EXPECT_TRUE(
        TelemetryEventLogger(TelemetryEventType::STA_CONNECTED).reportStaManagerEvent(-1, -1));
    EXPECT_EQ(stats->atoms().size(), 1U);
}

class TelemetryManagerTest : public ManagerTest {
  protected:
    TelemetryManager manager_{client_};
};

TEST_F(TelemetryManagerTest, LogsConnectionsAndChannelSwitchesAndReportsNothing) {
    const auto stats = test::startRecordingStats();
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=wlan0 width=80");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3");
    EXPECT_THAT(infos(), ElementsAre("TelemetryManager: STA event(CONNECTED)/(CHANNEL_SWITCH) - "
                                     "Connection to 02:00:00:00:01:00",
                                     "TelemetryManager: STA event(CONNECTED)/(CHANNEL_SWITCH) "
                                     "freq=5745 ifname=wlan0 width=80"));
    EXPECT_THAT(stats->atoms(), IsEmpty());
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(TelemetryManagerTest, NotesItsTask) {
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00");
    EXPECT_TRUE(composition_->ran("TelemetryManager.onStaEvent"));
}

TEST_F(TelemetryManagerTest, HasNothingToDump) {
    std::string text = "before";
    EXPECT_FALSE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "before");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
