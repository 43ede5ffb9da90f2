#include "tests/support/ManagerTest.h"

#include <atomic>

#include "client/WifiClientCallback.h"

namespace Ursa::OS::Wifi {

namespace {

struct Kind {
    const char* prefix;
    WifiClientCallbackType type;
};

/** What the events of either socket begin with. */
constexpr Kind kKinds[] = {
    {"CTRL-EVENT-SCAN-RESULTS ", WifiClientCallbackType::WPA_STA_SCAN_RESULTS},
    {"CTRL-EVENT-CHANNEL-SWITCH ", WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH},
    {"CTRL-EVENT-ASSOC-STARTED ", WifiClientCallbackType::WPA_STA_ASSOC_STARTED},
    {"CTRL-EVENT-CONNECTED ", WifiClientCallbackType::WPA_STA_CONNECTED},
    {"CTRL-EVENT-DISCONNECTED ", WifiClientCallbackType::WPA_STA_DISCONNECTED},
    {"CTRL-EVENT-TERMINATING ", WifiClientCallbackType::WPA_SOCKET_DISCONNECTED},
    {"CTRL-EVENT-REGDOM-CHANGE ", WifiClientCallbackType::WPA_REGDOM_CHANGE},
    {"AP-CSA-FINISHED ", WifiClientCallbackType::WPA_P2P_CSA_FINISHED},
    {"P2P-GROUP-REMOVED ", WifiClientCallbackType::WPA_P2P_GROUP_REMOVED},
    {"P2P-GROUP-STARTED ", WifiClientCallbackType::WPA_P2P_GROUP_STARTED},
};

constexpr char kP2pName[] = "p2p-wlan0-0";

const Kind* findKind(const std::string& event) {
    for (const Kind& kind : kKinds) {
        if (event.rfind(kind.prefix, 0) == 0) {
            return &kind;
        }
    }
    return nullptr;
}

}  // namespace

ManagerTest::ManagerTest() {
    client_->setCompositionRoot(composition_.get());
    waitUntilConnected_(NetInterfaceType::STA, 1);
    log_.clear();
}

ManagerTest::~ManagerTest() {
    composition_->coex.reset();
    composition_->p2p.reset();
    composition_->sta.reset();
    client_->setCompositionRoot(nullptr);
}

void ManagerTest::startP2p() {
    p2p_ = std::make_unique<test::ScriptedSupplicant>(root_.socketDirectory() + kP2pName);
    waitUntilConnected_(NetInterfaceType::P2P, 1);
    log_.clear();
}

void ManagerTest::restart(test::ScriptedSupplicant& supplicant) {
    const NetInterfaceType type =
        &supplicant == &sta_ ? NetInterfaceType::STA : NetInterfaceType::P2P;
    const size_t before = log_.count(ANDROID_LOG_INFO, connectedLine_(type));
    supplicant.restart();
    waitUntilConnected_(type, before + 1);
}

void ManagerTest::deliver(NetInterfaceType type, const std::string& event) {
    const Kind* kind = findKind(event);
    ASSERT_NE(kind, nullptr) << "no event begins like this: " << event;
    std::atomic<bool> handled{false};
    // Registered last, it is called last.
    const WifiClientCallback subscription(
        client_, {{kind->type, type, "ManagerTest.deliver",
                   [&](const std::string& /*event*/) { handled = true; }}});
    ASSERT_EQ(subscription.size(), 1U);
    (type == NetInterfaceType::STA ? sta_ : *p2p_).sendEvent(event);
    ASSERT_TRUE(test::waitUntil([&] { return handled.load(); })) << event;
}

std::string ManagerTest::connectedLine_(NetInterfaceType type) const {
    const bool isSta = type == NetInterfaceType::STA;
    return std::string(isSta ? "[WPA-STA]" : "[WPA-P2P]") +
           " Connected to supplicant socket: " + root_.socketDirectory() +
           (isSta ? "wlan0" : kP2pName);
}

void ManagerTest::waitUntilConnected_(NetInterfaceType type, size_t count) {
    const std::string line = connectedLine_(type);
    // Logged when the connection is ready for commands.
    EXPECT_TRUE(test::waitUntil([&] { return log_.count(ANDROID_LOG_INFO, line) >= count; }));
}

}  // namespace Ursa::OS::Wifi
