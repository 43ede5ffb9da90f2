#pragma once

#include <memory>
#include <string>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/CorvidWifiClient.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FakeCompositionRoot.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingStats.h"
#include "tests/support/ScriptedNl80211.h"
#include "tests/support/ScriptedSupplicant.h"
#include "tests/support/WaitUntil.h"

namespace Ursa::OS::Wifi {

/**
 * A client connected to a scripted supplicant and a scripted kernel, over real sockets in the
 * test's own device root. A test constructs its managers from `client_` as locals or members, so
 * that they are destroyed before this fixture.
 *
 *     TEST_F(ManagerTest, Name) {
 *         root_.setProperty("persist.vendor.wifi.txpower.dbm.upper", "18");
 *         composition_->sta = std::make_shared<StaManager>(client_, std::chrono::milliseconds(1));
 *         TxPowerManager manager(client_);
 *         sta_.answer("SIGNAL_POLL", "RSSI=-60\nFREQUENCY=5180\n");
 *         sta_.fail("DRIVER SET_TXPOWER 9");
 *         deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - Connection to ...");
 *         EXPECT_TRUE(sta_.waitForCommands("DRIVER SET_TXPOWER", 1));
 *         EXPECT_THAT(errors(), IsEmpty());
 *     }
 *
 * The program has the nl80211 redirect library linked in (see tests/managers/CMakeLists.txt).
 */
class ManagerTest : public testing::Test {
  protected:
    /** Connects the STA socket, then clears the log. */
    ManagerTest();
    /** Destroys the composition root's managers in the real root's order. */
    ~ManagerTest() override;

    /** Also connects the P2P socket, p2p-wlan0-0. */
    void startP2p();

    /** Crashes and restarts the supplicant, and waits until the client is connected again. */
    void restart(test::ScriptedSupplicant& supplicant);

    /**
     * Sends an event (without its tag) and waits until all present subscribers have handled it;
     * fails the test if they do not. "CTRL-EVENT-TERMINATING " closes the connection.
     */
    void deliver(NetInterfaceType type, const std::string& event);

    std::vector<std::string> messages(int priority) const { return log_.messages(priority); }
    std::vector<std::string> errors() const { return messages(ANDROID_LOG_ERROR); }
    std::vector<std::string> warnings() const { return messages(ANDROID_LOG_WARN); }
    std::vector<std::string> infos() const { return messages(ANDROID_LOG_INFO); }
    std::vector<std::string> debugs() const { return messages(ANDROID_LOG_DEBUG); }

    test::DeviceRoot root_;
    test::LogCapture log_;
    test::ScriptedNl80211 nl80211_{root_.path()};
    test::ScriptedSupplicant sta_{root_.socketDirectory() + "wlan0"};
    std::unique_ptr<test::ScriptedSupplicant> p2p_;  ///< null before startP2p()
    std::shared_ptr<CorvidWifiClient> client_ =
        std::make_shared<CorvidWifiClient>(root_.socketDirectory());
    std::unique_ptr<test::FakeCompositionRoot> composition_ =
        std::make_unique<test::FakeCompositionRoot>();

  private:
    std::string connectedLine_(NetInterfaceType type) const;
    void waitUntilConnected_(NetInterfaceType type, size_t count);
};

}  // namespace Ursa::OS::Wifi
