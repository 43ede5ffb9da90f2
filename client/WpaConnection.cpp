#include "client/WpaConnection.h"

#include "client/BssEventFilter.h"

namespace Ursa::OS::Wifi {

const char* toString(ConnectResult result) {
    switch (result) {
        case ConnectResult::Connected:
            break;
        case ConnectResult::CannotOpen:
            return "Failed to open wpa_supplicant control interface.";
        case ConnectResult::CannotAttach:
            return "Failed to register as event monitor for wpa_supplicant control interface.";
        case ConnectResult::NoService:
            return "Failed to get ISupplicant service";
        case ConnectResult::HalfOpen:
            return "Unexpected non-empty pointers to supplicant hal/death/ctrl interfaces";
        case ConnectResult::NoPath:
            return "Wpa socket file path is not ready";
    }
    return "";
}

WpaConnection::WpaConnection(std::chrono::milliseconds replyTimeout)
    : replyTimeout_(replyTimeout), command_(replyTimeout) {}

ConnectResult WpaConnection::open(const std::string& path) {
    if (monitor_.isOpen() && command_.isOpen()) {
        return ConnectResult::Connected;
    }
    if (monitor_.isOpen()) {
        return ConnectResult::HalfOpen;
    }
    if (path.empty()) {
        return ConnectResult::NoPath;
    }
    if (!monitor_.open(path)) {
        return ConnectResult::CannotOpen;
    }
    ending_ = false;
    std::string reply;
    if (monitor_.request("ATTACH", reply, replyTimeout_) != RequestResult::Replied ||
        reply != "OK\n") {
        monitor_.close();
        return ConnectResult::CannotAttach;
    }
    dropBssEvents(monitor_.fd());
    return command_.open(path) ? ConnectResult::Connected : ConnectResult::CannotOpen;
}

void WpaConnection::close() {
    if (monitor_.isOpen()) {
        if (ending_) {
            monitor_.sendOnly("DETACH");
        } else {
            std::string reply;
            monitor_.request("DETACH", reply, replyTimeout_);
        }
        monitor_.close();
    }
    command_.close();
}

std::optional<std::string_view> WpaConnection::receive() {
    size_t length = buffer_.size() - 1;
    if (wpa_ctrl_recv(monitor_.get(), buffer_.data(), &length) != 0) {
        return std::nullopt;
    }
    buffer_[length] = '\0';
    constexpr size_t kTagLength = 3;  // the priority, a digit in angle brackets; not checked
    if (length <= kTagLength) {
        return std::string_view();
    }
    // An event is a C string: it ends at the first NUL.
    return std::string_view(buffer_.data() + kTagLength);
}

}  // namespace Ursa::OS::Wifi
