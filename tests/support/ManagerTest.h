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
 * A client that is connected to a scripted supplicant and in front of a scripted kernel, all of it
 * on real sockets in a device root of the test's own. A test makes its managers from `client_`, and
 * lets them go before it ends (a local or a member of the test class does).
 *
 *     TEST_F(ManagerTest, Name) {
 *         root_.setProperty("persist.vendor.wifi.txpower.dbm.upper", "18");
 *         composition_->sta = std::make_shared<StaManager>(client_, std::chrono::milliseconds(1));
 *         TxPowerManager manager(client_);
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
    /** Connects the STA socket; what is logged until then is forgotten. */
    ManagerTest();
    /** Lets the composition root's managers go, as the real root does. */
    ~ManagerTest() override;

    /** Connects the P2P socket, p2p-wlan0-0, too. */
    void startP2p();

    /** The supplicant has crashed and come back: waits until the client is connected again. */
    void restart(test::ScriptedSupplicant& supplicant);

    /**
     * Sends an event (without its tag) and waits until every subscriber that there is now has
     * handled it. "CTRL-EVENT-TERMINATING " is the loss of the socket. Fails the test otherwise.
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
