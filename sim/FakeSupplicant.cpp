#include "sim/FakeSupplicant.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <linux/sockios.h>
#include <sys/ioctl.h>

namespace sim {

namespace {

using namespace std::chrono_literals;

/** How soon a full send buffer is tried again. */
constexpr auto kRetry = 200us;
constexpr auto kDropAfter = 5s;
constexpr int kMostRefusals = 10;
/** Longest command that the supplicant reads. */
constexpr size_t kLongestCommand = 8192;

bool startsWith(const std::string& text, std::string_view prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string line(std::string_view name, const std::string& value) {
    return std::string(name) + "=" + value + "\n";
}

}  // namespace

std::string FakeSupplicant::Address::text() const {
    const size_t offset = offsetof(sockaddr_un, sun_path);
    if (length <= offset) {
        return "";
    }
    // An abstract name begins with NUL; a path may end with one.
    const std::string path(name.sun_path, length - offset);
    return path[0] == '\0' ? "@" + path.substr(1) : path.substr(0, path.find('\0'));
}

bool FakeSupplicant::Address::operator==(const Address& other) const {
    return length == other.length && std::memcmp(&name, &other.name, length) == 0;
}

FakeSupplicant::FakeSupplicant(EventLoop& loop, Recorder& recorder, const RadioState& radio,
                               std::string folder)
    : loop_(loop), recorder_(recorder), radio_(radio), folder_(std::move(folder)) {}

FakeSupplicant::~FakeSupplicant() {
    for (const std::string& name : names()) {
        close(name, true);
    }
}

std::string FakeSupplicant::open(const std::string& name) {
    if (isOpen(name)) {
        return "socket " + name + " exists already";
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string file = path(name);
    if (file.size() >= sizeof(address.sun_path)) {
        return "the socket's path is too long: " + file;
    }
    std::memcpy(address.sun_path, file.c_str(), file.size() + 1);
    android::base::unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.ok()) {
        return std::string("no socket: ") + std::strerror(errno);
    }
    if (unlink(file.c_str()) == 0) {
        recorder_.add(Record("socket", name, "deleted"));
    }
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return "cannot bind " + file + ": " + std::strerror(errno);
    }
    Socket& socket = sockets_[name];
    socket.name = name;
    socket.fd = std::move(fd);
    socklen_t size = sizeof(socket.eventRoom);
    getsockopt(socket.fd.get(), SOL_SOCKET, SO_SNDBUF, &socket.eventRoom, &size);
    socket.eventRoom /= 2;
    if (!suspended_) {
        loop_.watch(socket.fd.get(), [this, name] { onReadable(name); });
    }
    recorder_.add(Record("socket", name, "created"));
    return "";
}

void FakeSupplicant::close(const std::string& name, bool unlink) {
    auto socket = sockets_.find(name);
    if (socket != sockets_.end()) {
        loop_.forget(socket->second.fd.get());
        loop_.cancel(socket->second.retry);
        sockets_.erase(socket);
        if (!unlink) {
            recorder_.add(Record("socket", name, "abandoned"));
        }
    }
    if (unlink && ::unlink(path(name).c_str()) == 0) {
        recorder_.add(Record("socket", name, "deleted"));
    }
}

std::vector<std::string> FakeSupplicant::names() const {
    std::vector<std::string> names;
    for (const auto& [name, socket] : sockets_) {
        names.push_back(name);
    }
    return names;
}

size_t FakeSupplicant::monitors(const std::string& name) const {
    auto socket = sockets_.find(name);
    return socket == sockets_.end() ? 0 : socket->second.monitors.size();
}

void FakeSupplicant::suspend() {
    suspended_ = true;
    for (auto& [name, socket] : sockets_) {
        loop_.forget(socket.fd.get());
    }
}

void FakeSupplicant::resume() {
    suspended_ = false;
    for (auto& [name, socket] : sockets_) {
        loop_.watch(socket.fd.get(), [this, name = name] { onReadable(name); });
    }
}

void FakeSupplicant::removeRules(const std::string& prefix) {
    rules_.remove_if([&](const ReplyRule& rule) { return rule.prefix == prefix; });
}

void FakeSupplicant::onReadable(const std::string& name) {
    char buffer[kLongestCommand];
    Address from;
    from.length = sizeof(from.name);
    auto socket = sockets_.find(name);
    const ssize_t length = recvfrom(socket->second.fd.get(), buffer, sizeof(buffer), 0,
                                    reinterpret_cast<sockaddr*>(&from.name), &from.length);
    if (length >= 0) {
        handle(socket->second, from, std::string(buffer, static_cast<size_t>(length)));
    }
}

void FakeSupplicant::handle(Socket& socket, const Address& from, const std::string& command) {
    const ReplyRule* rule = useRule(socket, command);
    const std::string text = rule != nullptr ? rule->answer : answer(socket, from, command);
    // Attaching and detaching are records of their own.
    if (rule != nullptr || (command != "ATTACH" && command != "DETACH")) {
        Record record("command", socket.name, command);
        if (rule != nullptr && rule->none) {
            record.withNull("reply");
        } else {
            record.with("reply", text);
        }
        recorder_.add(std::move(record));
    }
    if (rule != nullptr && rule->none) {
        return;
    }
    if (rule != nullptr && rule->after > Duration::zero()) {
        loop_.after(rule->after,
                    [this, name = socket.name, from, text] { reply(name, from, text); });
        return;
    }
    reply(socket.name, from, text);
}

const ReplyRule* FakeSupplicant::useRule(const Socket& socket, const std::string& command) {
    for (auto rule = rules_.begin(); rule != rules_.end(); ++rule) {
        if (!startsWith(command, rule->prefix) || !(rule->on.empty() || rule->on == socket.name)) {
            continue;
        }
        usedRule_ = *rule;
        if (rule->times > 0 && --rule->times == 0) {
            rules_.erase(rule);
        }
        return &usedRule_;
    }
    return nullptr;
}

std::string FakeSupplicant::answer(Socket& socket, const Address& from,
                                   const std::string& command) {
    if (command == "ATTACH") {
        return attach(socket, from);
    }
    if (command == "DETACH") {
        return detach(socket, from);
    }
    if (command == "PING") {
        return "PONG\n";
    }
    if (command == "SIGNAL_POLL") {
        return signalPoll(socket);
    }
    if (command == "STATUS") {
        return status(socket);
    }
    if (startsWith(command, "DRIVER ")) {
        return "OK\n";
    }
    if (startsWith(command, "CORVID_P2P_CHAN_SWITCH ")) {
        return "SUCCESS\n";
    }
    return "UNKNOWN COMMAND\n";
}

std::string FakeSupplicant::attach(Socket& socket, const Address& from) {
    Monitor monitor;
    monitor.address = from;
    socket.monitors.push_back(std::move(monitor));
    recorder_.add(Record("attach", socket.name, from.text())
                      .with("monitors", static_cast<int64_t>(socket.monitors.size())));
    return "OK\n";
}

std::string FakeSupplicant::detach(Socket& socket, const Address& from) {
    auto monitor = std::find_if(socket.monitors.begin(), socket.monitors.end(),
                                [&](const Monitor& m) { return m.address == from; });
    if (monitor == socket.monitors.end()) {
        return "FAIL\n";
    }
    socket.monitors.erase(monitor);
    recorder_.add(Record("detach", socket.name, from.text())
                      .with("why", "asked")
                      .with("monitors", static_cast<int64_t>(socket.monitors.size())));
    return "OK\n";
}

std::string FakeSupplicant::signalPoll(const Socket& socket) const {
    if (!radio_.sta || socket.name != "wlan0") {
        return "FAIL\n";
    }
    const StaLink& sta = *radio_.sta;
    const std::string rssi = std::to_string(radio_.signal.dbm(EventLoop::Clock::now()));
    return line("RSSI", rssi) + line("LINKSPEED", std::to_string(widthMHz(sta.width) * 10)) +
           line("NOISE", "-92") + line("FREQUENCY", std::to_string(sta.frequencyMHz)) +
           line("WIDTH", widthText(sta.width) + " MHz") +
           line("CENTER_FRQ1", std::to_string(centreMHz(sta.frequencyMHz, sta.width))) +
           line("AVG_RSSI", rssi) + line("AVG_BEACON_RSSI", rssi);
}

std::string FakeSupplicant::status(const Socket& socket) const {
    std::string out;
    const bool onGroup = radio_.group && radio_.group->ifname == socket.name;
    if (onGroup) {
        const P2pGroup& group = *radio_.group;
        out = line("bssid", kGroupAddress) + line("freq", std::to_string(group.frequencyMHz)) +
              line("ssid", group.ssid) + line("id", "0") +
              line("mode", group.groupOwner ? "P2P GO" : "station") +
              line("pairwise_cipher", "CCMP") + line("group_cipher", "CCMP") +
              line("key_mgmt", "WPA2-PSK") + line("wpa_state", "COMPLETED");
    } else if (radio_.sta && socket.name == "wlan0") {
        const StaLink& sta = *radio_.sta;
        out = line("bssid", sta.bssid) + line("freq", std::to_string(sta.frequencyMHz)) +
              line("ssid", sta.ssid) + line("id", "0") + line("mode", "station") +
              line("wifi_generation", "5") + line("pairwise_cipher", "CCMP") +
              line("group_cipher", "CCMP") + line("key_mgmt", "WPA2-PSK") +
              line("wpa_state", "COMPLETED") + line("ip_address", sta.ip);
    } else {
        out = line("wpa_state", "DISCONNECTED");
    }
    return out + line("p2p_device_address", kP2pDeviceAddress) +
           line("address", socket.name == "wlan0" ? kStaAddress : kGroupAddress) +
           line("uuid", "362db47b-a53a-5191-88fb-5458b986b2e4");
}

void FakeSupplicant::reply(const std::string& name, const Address& to, const std::string& text) {
    auto socket = sockets_.find(name);
    if (socket == sockets_.end()) {
        return;
    }
    // A client that has gone or doesn't read loses its answer, as with the real one.
    (void)sendto(socket->second.fd.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&to.name), to.length);
}

void FakeSupplicant::send(const std::string& name, const std::string& text, bool detail) {
    auto socket = sockets_.find(name);
    if (socket == sockets_.end()) {
        return;
    }
    Record record = Record("event", name, text)
                        .with("monitors", static_cast<int64_t>(socket->second.monitors.size()));
    record.detail = detail;
    recorder_.add(std::move(record));
    queue(socket->second, std::make_shared<const std::string>(text));
    flush(socket->second);
}

void FakeSupplicant::burst(const std::string& name, int count, const std::string& text) {
    Socket& socket = sockets_.at(name);
    recorder_.add(Record("burst", name, text)
                      .with("count", count)
                      .with("monitors", static_cast<int64_t>(socket.monitors.size())));
    constexpr std::string_view kNumber = "{n}";
    for (int i = 1; i <= count; ++i) {
        std::string event = text;
        for (size_t at = event.find(kNumber); at != std::string::npos;
             at = event.find(kNumber, at)) {
            event.replace(at, kNumber.size(), std::to_string(i));
        }
        queue(socket, std::make_shared<const std::string>(std::move(event)));
    }
    socket.burst += count;
    flush(socket);
}

void FakeSupplicant::queue(Socket& socket, const std::shared_ptr<const std::string>& text) {
    for (Monitor& monitor : socket.monitors) {
        monitor.waiting.push_back(text);
    }
    if (socket.retry == 0) {
        socket.lastTaken = EventLoop::Clock::now();
    }
}

void FakeSupplicant::flush(Socket& socket) {
    bool waiting = false;
    for (auto monitor = socket.monitors.begin(); monitor != socket.monitors.end();) {
        if (!flush(socket, *monitor)) {
            const std::string address = monitor->address.text();
            const auto lost = static_cast<int64_t>(monitor->waiting.size());
            monitor = socket.monitors.erase(monitor);
            recorder_.add(Record("detach", socket.name, address)
                              .with("why", "dropped")
                              .with("lost", lost)
                              .with("monitors", static_cast<int64_t>(socket.monitors.size())));
            continue;
        }
        waiting = waiting || !monitor->waiting.empty();
        ++monitor;
    }
    loop_.cancel(std::exchange(socket.retry, 0));
    if (waiting) {
        socket.retry = loop_.after(kRetry, [this, name = socket.name] {
            auto found = sockets_.find(name);
            if (found != sockets_.end()) {
                flush(found->second);
            }
        });
    } else if (socket.burst > 0) {
        recorder_.add(
            Record("burst", socket.name, "done").with("count", std::exchange(socket.burst, 0)));
    }
}

bool FakeSupplicant::flush(Socket& socket, Monitor& monitor) {
    while (!monitor.waiting.empty()) {
        if (!hasEventRoom(socket)) {
            return EventLoop::Clock::now() - socket.lastTaken < kDropAfter;
        }
        const std::string& text = *monitor.waiting.front();
        if (sendto(socket.fd.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr*>(&monitor.address.name),
                   monitor.address.length) >= 0) {
            monitor.waiting.pop_front();
            monitor.refusals = 0;
            socket.lastTaken = EventLoop::Clock::now();
            continue;
        }
        if (errno == EAGAIN || errno == ENOBUFS) {
            return EventLoop::Clock::now() - socket.lastTaken < kDropAfter;
        }
        if (errno == ENOENT || errno == EPERM || ++monitor.refusals > kMostRefusals) {
            return false;
        }
        monitor.waiting.pop_front();  // lost, as with the real one
    }
    return true;
}

bool FakeSupplicant::hasEventRoom(const Socket& socket) const {
    int used = 0;
    return ioctl(socket.fd.get(), SIOCOUTQ, &used) != 0 || used < socket.eventRoom;
}

}  // namespace sim
