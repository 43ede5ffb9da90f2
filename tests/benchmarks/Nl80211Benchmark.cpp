// An nl80211 request of the daemon against the same libnl calls made by hand, both to the same
// peer.

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>

#include "Compare.h"
#include "client/Nl80211Client.h"
#include "tests/support/FakeNl80211.h"
#include "tests/support/TempFolder.h"

namespace corvid::benchmarks {
namespace {

using Ursa::OS::Wifi::NetInterfaceType;
using Ursa::OS::Wifi::Nl80211Client;
using Ursa::OS::Wifi::Nl80211VendorCmdInfo;

int setStatus(nl_msg* /*message*/, void* status) {
    *static_cast<int*>(status) = 0;
    return NL_SKIP;
}

int setStatusAndStop(nl_msg* /*message*/, void* status) {
    *static_cast<int*>(status) = 0;
    return NL_STOP;
}

int setError(sockaddr_nl* /*peer*/, nlmsgerr* error, void* status) {
    *static_cast<int*>(status) = error->error;
    return NL_SKIP;
}

/** One request as a program without the client would make it. Returns the status. */
int bareRequest(int flags, uint8_t cmd, const std::function<void(nl_msg*)>& fill,
                nl_recvmsg_msg_cb_t onEntry, void* argument) {
    nl_sock* socket = nl_socket_alloc();
    nl_socket_set_buffer_size(socket, 8192, 8192);
    genl_connect(socket);
    const int family = genl_ctrl_resolve(socket, "nl80211");
    nl_cb* callbacks = nl_cb_alloc(NL_CB_DEFAULT);
    nl_msg* message = nlmsg_alloc();
    genlmsg_put(message, 0, 0, family, 0, flags, cmd, 0);
    fill(message);
    if (onEntry != nullptr) {
        nl_cb_set(callbacks, NL_CB_VALID, NL_CB_CUSTOM, onEntry, argument);
    }
    nl_send_auto_complete(socket, message);
    int status = 1;
    nl_cb_err(callbacks, NL_CB_CUSTOM, setError, &status);
    nl_cb_set(callbacks, NL_CB_FINISH, NL_CB_CUSTOM, setStatus, &status);
    nl_cb_set(callbacks, NL_CB_ACK, NL_CB_CUSTOM, setStatusAndStop, &status);
    while (status > 0) {
        nl_recvmsgs(socket, callbacks);
    }
    nlmsg_free(message);
    nl_cb_put(callbacks);
    nl_socket_free(socket);
    return status;
}

void bareVendorCommand() {
    const int status = bareRequest(
        0, NL80211_CMD_VENDOR,
        [](nl_msg* message) {
            nla_put_u32(message, NL80211_ATTR_IFINDEX, if_nametoindex("lo"));
            nla_put_u32(message, NL80211_ATTR_VENDOR_ID, 0x001018);
            nla_put_u32(message, NL80211_ATTR_VENDOR_SUBCMD, 2);
            nlattr* nest = nla_nest_start(message, NL80211_ATTR_VENDOR_DATA);
            const char text[] = "ifname=lo P2P_ECSA 149 80";
            nla_put(message, 0, sizeof(text), text);
            nla_nest_end(message, nest);
        },
        nullptr, nullptr);
    if (status != 0) {
        abort();
    }
}

int copyP2pName(nl_msg* message, void* argument) {
    nlattr* attributes[NL80211_ATTR_MAX + 1];
    auto* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(message)));
    nla_parse(attributes, NL80211_ATTR_MAX, genlmsg_attrdata(header, 0), genlmsg_attrlen(header, 0),
              nullptr);
    if (attributes[NL80211_ATTR_IFNAME] != nullptr) {
        const auto* name = static_cast<char*>(nla_data(attributes[NL80211_ATTR_IFNAME]));
        if (strncmp(name, "p2p", 3) == 0) {
            strncpy(static_cast<char*>(argument), name, IFNAMSIZ - 1);
        }
    }
    return NL_SKIP;
}

void bareInterfaceName() {
    char name[IFNAMSIZ] = "";
    const int status = bareRequest(
        NLM_F_DUMP, NL80211_CMD_GET_INTERFACE, [](nl_msg*) {}, copyP2pName, name);
    if (status != 0 || strcmp(name, "p2p-wlan0-0") != 0) {
        abort();
    }
}

void clientVendorCommand(Nl80211Client& client) {
    Nl80211VendorCmdInfo info;
    info.vendorId = 0x001018;
    info.subcmd = 2;
    info.command = "P2P_ECSA 149 80";
    info.ifname = "lo";
    if (client.sendVendorCommand(info) != 0) {
        abort();
    }
}

void clientInterfaceName(Nl80211Client& client) {
    const char* name = client.getNetInterfaceName(NetInterfaceType::P2P);
    if (name == nullptr || strcmp(name, "p2p-wlan0-0") != 0) {
        abort();
    }
}

/** The kernel's interface dump: an entry per packet's message, then the end. */
std::vector<test::Bytes> answerTo(const test::NetlinkRequest& request) {
    if (request.cmd != NL80211_CMD_GET_INTERFACE) {
        return {test::ack(request)};
    }
    const auto entry = [&](const char* name) {
        return test::dumpEntry(
            request, NL80211_CMD_NEW_INTERFACE,
            test::concat({test::attribute(NL80211_ATTR_IFINDEX, test::number32(1)),
                          test::attribute(NL80211_ATTR_IFNAME, test::terminatedText(name)),
                          test::attribute(NL80211_ATTR_MAC, test::Bytes(6))}));
    };
    return {test::concat({entry("wlan0"), entry("p2p-wlan0-0")}), test::done(request)};
}

void request(benchmark::State& state, const char* name, void (*clientCall)(Nl80211Client&),
             void (*bareCall)()) {
    constexpr int kRequests = 20;
    const OneProcessor oneProcessor;
    const test::TempFolder root;
    setenv("CORVID_WIFI_ROOT", root.path().c_str(), 1);
    test::FakeNl80211 kernel(root.path());
    kernel.answer(answerTo);
    Nl80211Client client;
    compare(
        state, name, 1.05, Clock::Wall, kRequests,
        [&] {
            clientCall(client);
            kernel.forgetRequests();
        },
        [&] {
            bareCall();
            kernel.forgetRequests();
        });
}

void vendorCommand(benchmark::State& state) {
    request(state, "nl80211 vendor command / libnl by hand", clientVendorCommand,
            bareVendorCommand);
}
BENCHMARK(vendorCommand)->UseManualTime();

void interfaceName(benchmark::State& state) {
    request(state, "nl80211 interface dump / libnl by hand", clientInterfaceName,
            bareInterfaceName);
}
BENCHMARK(interfaceName)->UseManualTime();

}  // namespace
}  // namespace corvid::benchmarks
