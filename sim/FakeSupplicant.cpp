#include "sim/FakeSupplicant.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace sim {

namespace {

using namespace std::chrono_literals;

/** How soon a full send buffer is tried again. */
constexpr auto kRetry = 200us;
constexpr auto kDropAfter = 5s;
constexpr int kMostRefusals = 10;

bool startsWith(const std::string& text, std::string_view prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string line(std::string_view name, const std::string& value) {
    return std::string(name) + "=" + value + "\n";
}

}  // namespace

FakeSupplicant::Event::~Event() {
    if (onDelivered) {
        onDelivered(taken);
    }
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
    if (unlink(path(name).c_str()) == 0) {
        recorder_.add(Record("socket", name, "deleted"));
    }
    ControlSocket control;
    if (std::string error = control.open(path(name)); !error.empty()) {
        return error;
    }
    Socket& socket = sockets_[name];
    socket.name = name;
    socket.control = std::move(control);
    if (!suspended_) {
        loop_.watch(socket.control.fd(), [this, name] { onReadable(name); });
    }
    recorder_.add(Record("socket", name, "created"));
    return "";
}

void FakeSupplicant::close(const std::string& name, bool unlink) {
    auto socket = sockets_.find(name);
    if (socket != sockets_.end()) {
        loop_.forget(socket->second.control.fd());
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
        loop_.forget(socket.control.fd());
    }
}

void FakeSupplicant::resume() {
    suspended_ = false;
    for (auto& [name, socket] : sockets_) {
        loop_.watch(socket.control.fd(), [this, file = name] { onReadable(file); });
    }
}

void FakeSupplicant::removeRules(const std::string& prefix) {
    rules_.remove_if([&](const ReplyRule& rule) { return rule.prefix == prefix; });
}

void FakeSupplicant::onReadable(const std::string& name) {
    Socket& socket = sockets_.at(name);
    ControlSocket::Request request;
    if (socket.control.receive(request, MSG_DONTWAIT)) {
        handle(socket, request.from, request.text);
    }
}

void FakeSupplicant::handle(Socket& socket, const Address& from, const std::string& command) {
    const std::optional<Reply> rule = scripted(socket, command);
    const Reply reply = rule ? *rule : Reply{Reply::How::Send, answer(socket, from, command)};
    // Attaching and detaching are records of their own.
    if (rule || (command != "ATTACH" && command != "DETACH")) {
        Record record("command", socket.name, command);
        if (reply.how == Reply::How::Send) {
            record.with("reply", reply.text);
        } else {
            record.withNull("reply");
        }
        recorder_.add(std::move(record));
    }
    if (reply.how == Reply::How::Reset) {
        socket.control.reset(from);
    } else if (reply.how == Reply::How::Send && reply.after > Duration::zero()) {
        loop_.after(reply.after, [this, name = socket.name, from, text = reply.text] {
            send(name, from, text);
        });
    } else if (reply.how == Reply::How::Send) {
        send(socket.name, from, reply.text);
    }
}

std::optional<Reply> FakeSupplicant::scripted(const Socket& socket, const std::string& command) {
    if (script_) {
        if (std::optional<Reply> reply = script_(command)) {
            return reply;
        }
    }
    for (auto rule = rules_.begin(); rule != rules_.end(); ++rule) {
        if (!startsWith(command, rule->prefix) || !(rule->on.empty() || rule->on == socket.name)) {
            continue;
        }
        Reply reply = rule->reply;
        if (rule->times > 0 && --rule->times == 0) {
            rules_.erase(rule);
        }
        return reply;
    }
    return std::nullopt;
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

void FakeSupplicant::send(const std::string& name, const Address& to, const std::string& text) {
    const auto socket = sockets_.find(name);
    if (socket != sockets_.end()) {
        // A client that has gone or doesn't read loses its answer, as with the real one.
        (void)socket->second.control.send(to, text, MSG_DONTWAIT);
    }
}

void FakeSupplicant::send(const std::string& name, const std::string& text,
                          std::function<void(size_t)> onDelivered) {
    const auto event = std::make_shared<Event>(text, std::move(onDelivered));
    const auto socket = sockets_.find(name);
    if (socket == sockets_.end()) {
        return;
    }
    recorder_.add(Record("event", name, text)
                      .with("monitors", static_cast<int64_t>(socket->second.monitors.size())));
    queue(socket->second, event);
    flush(socket->second);
}

void FakeSupplicant::resetMonitors(const std::string& name) {
    const Socket& socket = sockets_.at(name);
    for (const Monitor& monitor : socket.monitors) {
        socket.control.reset(monitor.address);
    }
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
        queue(socket, std::make_shared<Event>(std::move(event), nullptr));
    }
    socket.burst += count;
    flush(socket);
}

void FakeSupplicant::queue(Socket& socket, const std::shared_ptr<Event>& event) {
    for (Monitor& monitor : socket.monitors) {
        monitor.waiting.push_back(event);
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
        if (!socket.control.hasRoom()) {
            return EventLoop::Clock::now() - socket.lastTaken < kDropAfter;
        }
        Event& event = *monitor.waiting.front();
        const int error = socket.control.send(monitor.address, event.text, MSG_DONTWAIT);
        if (error == 0) {
            ++event.taken;
            monitor.refusals = 0;
            socket.lastTaken = EventLoop::Clock::now();
        } else if (error == EAGAIN || error == ENOBUFS) {
            return EventLoop::Clock::now() - socket.lastTaken < kDropAfter;
        } else if (error == ENOENT || error == EPERM || ++monitor.refusals > kMostRefusals) {
            return false;
        }
        monitor.waiting.pop_front();  // a refused one is lost, as with the real one
    }
    return true;
}

}  // namespace sim
