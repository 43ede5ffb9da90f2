#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <sys/types.h>

namespace sim {

using Duration = std::chrono::nanoseconds;

/** Channel widths as the scenario writes them: 20, 40, 80, 80+80 and 160 MHz. */
enum class Width { MHz20, MHz40, MHz80, MHz80Plus80, MHz160 };

// What a line of a scenario asks for. README.md explains each; a string without a value and a zero
// stand for "the default, decided when the line is played".

struct SetProperty {
    std::string name;
    std::optional<std::string> value;  ///< Empty: remove the property.
};

struct SupplicantControl {
    enum class What { Start, Terminate, Crash, Restart, Suspend, Resume } what;
    std::string p2p;            ///< Start: name of the P2P device's socket; empty: none.
    bool removeFolder = false;  ///< Terminate: remove the socket folder too.
};

struct SocketControl {
    enum class What { Create, Delete, Abandon } what;
    std::string name;
};

struct FolderControl {
    enum class Which { Sockets, Hwbinder } which;
    bool create;
};

struct Connect {
    int frequencyMHz;
    Width width = Width::MHz20;
    int rssiDbm = -50;
    std::string bssid;
    std::string ssid;
    std::string ip;
};

struct Disconnect {
    int reason = 3;
    bool byHeadset = true;
};

struct SetRssi {
    int fromDbm;
    int toDbm;
    Duration over;  ///< 0: at once.
};

struct ChannelSwitch {
    int frequencyMHz;
    Width width = Width::MHz20;
    std::string ifname;     ///< Interface that switches.
    bool mainline = false;  ///< The mainline supplicant's words instead of the headset's.
};

struct Scan {
    int networks = 3;
};

struct Regdom {
    std::string init;
    std::string type;
    std::string alpha2;
    std::string on;
};

struct AssocStarted {
    std::string ifname;
};

struct P2pStart {
    int frequencyMHz;
    Width width = Width::MHz20;
    std::string ifname;
    std::string on;
    bool groupOwner = true;
    Duration upAfter;  ///< From the group's socket to its events, when the socket is new.
};

struct P2pSwitch {
    int frequencyMHz;
    Width width = Width::MHz20;
};

struct P2pStop {
    std::string reason;
    Duration downAfter;  ///< From the group's events to the removal of its socket.
};

struct P2pPeer {
    bool joins;
    std::string mac;
};

struct InterfaceControl {
    bool add;
    std::string name;
};

struct SendEvent {
    std::string socket;
    std::string text;  ///< With the priority tag; exactly what is sent.
};

struct Burst {
    std::string socket;
    int count;
    std::string text;  ///< With the priority tag; "{n}" is the number, from 1.
};

/** How a command to the supplicant is answered. */
struct ReplyRule {
    std::string prefix;  ///< Of the commands that it is for.
    std::string on;      ///< Socket name; empty: every socket.
    bool none = false;   ///< No answer at all.
    std::string answer;
    int times = 0;      ///< How often it holds; 0: until it is removed.
    Duration after{0};  ///< Delay of the answer.
};

struct RemoveReplyRules {
    std::string prefix;
};

/** The requests that the kernel side knows. */
enum class NetlinkRequest { Family, InterfaceDump, StationDump, Vendor, Frame, Any };

/** How the kernel side answers a kind of request from now on. */
struct NetlinkRule {
    enum class Fault {
        Error,          ///< An error reply.
        Truncated,      ///< A reply whose attributes or record end too early.
        Garbage,        ///< A reply of random bytes.
        NoStationInfo,  ///< A station without NL80211_ATTR_STA_INFO.
        NoBitrate,      ///< A station without a TX bit rate.
        Silent,         ///< No reply.
        HangUp          ///< The connection is closed.
    };
    NetlinkRequest request;
    Fault fault;
    int error = 0;        ///< Error: negative errno.
    std::string extAck;   ///< Error: the extended acknowledgement's text; empty: none.
    bool capped = false;  ///< Error: without the echo of the request.
    int times = 0;        ///< How often it holds; 0: until it is removed.
};

struct RemoveNetlinkRules {
    NetlinkRequest request;
};

struct NetlinkFamily {
    int id;  ///< 0: there is no nl80211.
};

struct NetlinkListener {
    enum class What {
        Listen,
        Close,  ///< The path stays, nobody listens.
        Remove  ///< The path goes too.
    } what;
};

struct StatsControl {
    enum class What { Start, Stop, Crash } what;
};

struct DaemonControl {
    enum class What { Start, Signal } what;
    int signal = 0;
};

struct MonitorControl {
    bool start;
};

struct Call {
    std::vector<std::string> arguments;  ///< Of `corvid-wifi`.
};

struct Expect {
    std::string kind;  ///< Of a record.
    std::string text;  ///< Part of the record's text.
    bool unwanted = false;
    Duration within;
};

struct Say {
    std::string text;
};

/** Prints the state of the sockets and of the link as a record. */
struct ShowState {};

struct End {};

using Action =
    std::variant<SetProperty, SupplicantControl, SocketControl, FolderControl, Connect, Disconnect,
                 SetRssi, ChannelSwitch, Scan, Regdom, AssocStarted, P2pStart, P2pSwitch, P2pStop,
                 P2pPeer, InterfaceControl, SendEvent, Burst, ReplyRule, RemoveReplyRules,
                 NetlinkRule, RemoveNetlinkRules, NetlinkFamily, NetlinkListener, StatsControl,
                 DaemonControl, MonitorControl, Call, Expect, Say, ShowState, End>;

struct Step {
    Duration at{0};        ///< Since the start of the play; 0 for the preparation.
    bool prepare = false;  ///< Stands before the first time: played before the daemon is started.
    int line = 0;
    std::string text;  ///< The line without its time and comment.
    Action action;
};

struct Scenario {
    std::string name;  ///< The file's name as it was given.
    std::vector<Step> steps;
};

/** A line that is not understood. what() says what was wrong and what is allowed. */
class ScenarioError : public std::runtime_error {
  public:
    ScenarioError(int at, const std::string& message) : std::runtime_error(message), line(at) {}
    int line;
};

/** Parses a whole scenario; throws ScenarioError at the first line that is not understood. */
Scenario parseScenario(std::string name, std::string_view text);

/**
 * Parses one line without a time. Empty when the line is blank or a comment; throws ScenarioError
 * (with `line`) when it is not understood.
 */
std::optional<Step> parseLine(std::string_view text, int line);

/** "80" or "80+80": the width in MHz as scenarios and the supplicant write it. */
std::string widthText(Width width);

/** The width in MHz, 80 for 80+80. */
int widthMHz(Width width);

}  // namespace sim
