#pragma once

#include <string>

#include "sim/EventLoop.h"
#include "sim/FakeSupplicant.h"
#include "sim/RadioState.h"

namespace sim {

struct ChannelSwitch {
    int frequencyMHz = 0;
    Width width = Width::MHz20;
    std::string ifname;     ///< Interface that switches.
    bool mainline = false;  ///< In the form of the mainline supplicant, not the headset's.
};

struct Regdom {
    std::string init;
    std::string type;
    std::string alpha2;  ///< Empty: none.
    std::string on;      ///< Socket that the event is sent on.
};

struct P2pStart {
    int frequencyMHz = 0;
    Width width = Width::MHz20;
    std::string ifname;  ///< Empty: the P2P device, or p2p-wlan0-0 when there is none.
    std::string on;      ///< Socket of the start and end events; empty: the group's own.
    bool groupOwner = true;
    Duration upAfter{0};  ///< From the group's socket to its events, when the socket is new.
};

/**
 * What happens to the headset's Wi-Fi: changes the radio's state, and the supplicant sends the
 * events that a real one sends about it. Each operation returns why it failed, or an empty text.
 */
class Headset {
  public:
    Headset(EventLoop& loop, FakeSupplicant& supplicant, RadioState& radio)
        : loop_(loop), supplicant_(supplicant), radio_(radio) {}
    ~Headset();
    Headset(const Headset&) = delete;
    Headset& operator=(const Headset&) = delete;

    /** `p2p` names the P2P device's socket; empty: none. The folder must be there. */
    std::string startSupplicant(const std::string& p2p);
    std::string terminateSupplicant();
    /** Ends without an event: the socket files stay behind. */
    std::string crashSupplicant();
    /** Starts it as it was started last, after a crash if it runs. */
    std::string restartSupplicant();

    std::string connect(const StaLink& link, int rssiDbm);
    std::string disconnect(int reason, bool byHeadset);
    std::string switchChannel(const ChannelSwitch& change);
    std::string scan(int networks);
    std::string changeRegdom(const Regdom& regdom);
    std::string startAssociation(const std::string& ifname);
    std::string startGroup(const P2pStart& start);
    std::string switchGroup(int frequencyMHz, Width width);
    /** A socket that the group brought is removed `downAfter` later. */
    std::string stopGroup(const std::string& reason, Duration downAfter);
    std::string peer(bool joins, const std::string& mac);

  private:
    std::string checkSta() const;
    /** Sends "<3>" and `text` on `socket`; does nothing if that is not open. */
    void sendEvent(const std::string& socket, const std::string& text);
    void announceGroup(const P2pStart& start);
    void removeGroupSocket();
    void forgetLinks();

    EventLoop& loop_;
    FakeSupplicant& supplicant_;
    RadioState& radio_;
    /** Name of the P2P device's socket, empty when there is none. */
    std::string p2pDevice_;
    /** Socket of the group's start and end events. */
    std::string groupOn_;
    EventLoop::TimerId groupUp_ = 0;
    EventLoop::TimerId groupDown_ = 0;
    /** Socket that was made for the group; empty when it was there before. */
    std::string groupSocket_;
};

}  // namespace sim
