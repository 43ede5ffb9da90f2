#pragma once

#include <string>

namespace sim {

/** The requests that the simulated kernel answers. */
enum class NetlinkRequest { Family, InterfaceDump, StationDump, Vendor, Frame, Any };

/** How the simulated kernel answers one kind of request from now on. */
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
    bool atEnd = false;   ///< Error: in the dump's end, NLMSG_DONE, instead of an NLMSG_ERROR.
    int times = 0;        ///< How often it holds; 0: until it is removed.
};

}  // namespace sim
