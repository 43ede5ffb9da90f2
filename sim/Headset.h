#pragma once

#include <string>

#include "sim/EventLoop.h"
#include "sim/FakeSupplicant.h"
#include "sim/RadioState.h"
#include "sim/Scenario.h"

namespace sim {

/**
 * What happens to the headset's Wi-Fi: changes the radio's state and has the supplicant print what
 * a real one prints about it, in its words and order. Each operation returns why it was not
 * possible, or an empty text.
 */
class Headset {
  public:
    Headset(EventLoop& loop, FakeSupplicant& supplicant, RadioState& radio)
        : mLoop(loop), mSupplicant(supplicant), mRadio(radio) {}
    ~Headset();
    Headset(const Headset&) = delete;
    Headset& operator=(const Headset&) = delete;

    /** `p2p` as in SupplicantControl; the folder must be there. */
    std::string startSupplicant(const std::string& p2p);
    std::string terminateSupplicant();
    /** Ends without a word: the socket files stay behind. */
    std::string crashSupplicant();
    /** Starts it as it was started last, after a crash if it runs. */
    std::string restartSupplicant();

    std::string connect(const Connect& action);
    std::string disconnect(const Disconnect& action);
    std::string switchChannel(const ChannelSwitch& action);
    std::string scan(const Scan& action);
    std::string changeRegdom(const Regdom& action);
    std::string startAssociation(const AssocStarted& action);
    std::string startGroup(const P2pStart& action);
    std::string switchGroup(const P2pSwitch& action);
    std::string stopGroup(const P2pStop& action);
    std::string peer(const P2pPeer& action);

  private:
    std::string checkSta() const;
    /** Sends "<3>" and `text` on `socket`; nothing if that isn't open. */
    void say(const std::string& socket, const std::string& text);
    void announceGroup(const P2pStart& action);
    void removeGroupSocket();
    void forgetLinks();

    EventLoop& mLoop;
    FakeSupplicant& mSupplicant;
    RadioState& mRadio;
    /** Name of the P2P device's socket, empty when there is none. */
    std::string mP2pDevice;
    /** Where the group's start and end are told. */
    std::string mGroupOn;
    EventLoop::TimerId mGroupUp = 0;
    EventLoop::TimerId mGroupDown = 0;
    /** Socket that the group brought, to be removed with it; empty when it was there before. */
    std::string mGroupSocket;
};

}  // namespace sim
