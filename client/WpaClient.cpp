#include "client/WpaClient.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <regex>
#include <thread>
#include <utility>

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include "os/DevicePath.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

const std::string kSocketDirectory = devicePath("/data/vendor/wifi/wpa/sockets/");
const std::string kStaSocketName = "wlan0";
const std::string kP2pSocketNamePattern = R"(\b(?:p2p-wlan0-\d+?|p2p0)\b)";

/** How long the listener sleeps when nothing happens. */
constexpr int kListenerTimeoutMs = 300'000;

/** Between failures in a row: memory that is short now is not there at once. */
constexpr std::chrono::milliseconds kPauseAfterFailures{100};

constexpr size_t kInotifyBufferSize = 1536;

/** Whether a file's whole name is that of a socket of this kind. */
bool isSocketName(const std::string& name, NetInterfaceType type) {
    static const std::regex sta(kStaSocketName);
    static const std::regex p2p(kP2pSocketNamePattern);
    return std::regex_match(name, type == NetInterfaceType::STA ? sta : p2p);
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

/**
 * Null if it cannot be read. Throws std::bad_alloc without memory for it: it may well hold sockets,
 * and nobody would look again.
 */
Directory openDirectory(const std::string& path) {
    Directory directory(opendir(path.c_str()));
    if (directory == nullptr && errno == ENOMEM) {
        throw std::bad_alloc();
    }
    return directory;
}

}  // namespace

const std::string& WpaClient::socketDirectory() { return kSocketDirectory; }

WpaClient::WpaClient(History& history, std::string directory,
                     std::chrono::milliseconds replyTimeout)
    : history_(history),
      directory_(std::move(directory)),
      poll_(std::make_shared<Poll>()),
      eventFd_(poll_) {
    eventFd_.open();
    startWpaSocketMonitor_();
    startListener_();
    addSocket_(NetInterfaceType::STA, replyTimeout);
    addSocket_(NetInterfaceType::P2P, replyTimeout);
}

WpaClient::~WpaClient() {
    // The listener may be running an event; its callback holds the socket until it returns.
    std::map<NetInterfaceType, std::shared_ptr<WpaSocket>> sockets;
    {
        MutexLock lock(socketsMutex_);
        sockets.swap(sockets_);
    }
    sockets.clear();
    stopListener_();
    stopWpaSocketMonitor_();
}

int WpaClient::registerEventCallback(WifiClientCallbackType type,
                                     std::function<void(const std::string&)>& callback,
                                     NetInterfaceType ifType) {
    const auto socket = requireSocket_(ifType, "registerEventCallback");
    return socket == nullptr ? -1 : socket->registerEventCallback(type, callback);
}

bool WpaClient::unregisterEventCallback(WifiClientCallbackType type, int handle,
                                        NetInterfaceType ifType) {
    const auto socket = requireSocket_(ifType, "unregisterEventCallback");
    return socket != nullptr && socket->unregisterEventCallback(type, handle);
}

bool WpaClient::sendCtrlCmd(const std::string& cmd, std::string& reply, NetInterfaceType ifType) {
    const auto socket = requireSocket_(ifType, "sendCtrlCmd");
    return socket != nullptr && socket->sendCtrlCmd(cmd, reply);
}

StateTree WpaClient::describe(NetInterfaceType ifType) {
    const auto socket = findSocket_(ifType);
    return socket == nullptr ? StateTree() : socket->stats().describe();
}

StateTree WpaClient::describePending(NetInterfaceType ifType) {
    const auto socket = findSocket_(ifType);
    return socket == nullptr ? StateTree() : socket->stats().describePending();
}

std::shared_ptr<WpaSocket> WpaClient::findSocket_(NetInterfaceType type) {
    MutexLock lock(socketsMutex_);
    const auto found = sockets_.find(type);
    return found == sockets_.end() ? nullptr : found->second;
}

std::shared_ptr<WpaSocket> WpaClient::requireSocket_(NetInterfaceType type, const char* caller) {
    auto socket = findSocket_(type);
    if (socket == nullptr) {
        WIFI_LOGE("%s: socket type %s(%d) is not supported", caller, toString(type),
                  static_cast<int>(type));
    }
    return socket;
}

void WpaClient::addSocket_(NetInterfaceType type, std::chrono::milliseconds replyTimeout) {
    const auto socket = WpaSocket::create(type, poll_, eventFd_, history_, {}, replyTimeout);
    {
        MutexLock lock(socketsMutex_);
        sockets_[type] = socket;
    }
    findSocketFile_(type, *socket);
}

void WpaClient::findSocketFile_(NetInterfaceType type, WpaSocket& socket) {
    const Directory directory = openDirectory(directory_);
    if (directory == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (entry->d_type == DT_SOCK && isSocketName(entry->d_name, type)) {
            const std::string path = directory_ + entry->d_name;
            WIFI_LOGI("wpa %s socket file (%s) exists. Try to connect now", toString(type),
                      path.c_str());
            follow_(type, socket, path);
            return;
        }
    }
}

bool WpaClient::SocketFile::operator==(const SocketFile& other) const {
    return path == other.path && device == other.device && inode == other.inode &&
           made == other.made;
}

WpaClient::SocketFile WpaClient::identify_(const std::string& path) {
    SocketFile file;
    file.path = path;
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        file.device = status.st_dev;
        file.inode = status.st_ino;
        // Nothing writes to a socket file, so its modification time is its creation time.
        file.made = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
    }
    return file;
}

void WpaClient::follow_(NetInterfaceType type, WpaSocket& socket, const std::string& path) {
    {
        MutexLock lock(socketsMutex_);
        followed_[type] = identify_(path);
    }
    socket.onSocketFileCreate(path);
}

void WpaClient::leave_(NetInterfaceType type, WpaSocket& socket) {
    {
        MutexLock lock(socketsMutex_);
        followed_.erase(type);
    }
    socket.onSocketFileDelete();
}

bool WpaClient::startWpaSocketMonitor_() {
    if (inotifyFd_ != -1 || watch_ != -1) {
        WIFI_LOGE("Cannot start due to unexpected wpa socket directory file/watch descriptor");
        return false;
    }
    inotifyFd_.reset(inotify_init1(IN_CLOEXEC));
    if (inotifyFd_ < 0) {
        WIFI_LOGE("Failed to init wpa socket directory file descriptor: err %d", errno);
        return false;
    }
    poll_->addFd(inotifyFd_.get(), EPOLLIN,
                 [this](int fd, int events) { return onSocketUpdate_(fd, events); });
    if (!watchDirectory_()) {
        WIFI_LOGE("Failed to init wpa socket directory watch descriptor: err %d", errno);
        stopWpaSocketMonitor_();
        return false;
    }
    return true;
}

bool WpaClient::watchDirectory_() {
    const int before = watch_;
    watch_ = inotify_add_watch(inotifyFd_.get(), directory_.c_str(), IN_CREATE | IN_DELETE);
    if (watch_ >= 0 && watch_ != before) {
        WIFI_LOGI("Started monitoring wpa socket directory");
    }
    return watch_ >= 0;
}

void WpaClient::onDirectoryRemoved_() {
    // Up to and including the slash before the last name; directory_ itself ends in a slash.
    const std::string parent =
        directory_.substr(0, directory_.rfind('/', directory_.size() - 2) + 1);
    parentWatch_ = inotify_add_watch(inotifyFd_.get(), parent.c_str(), IN_CREATE | IN_MOVED_TO);
    if (parentWatch_ < 0) {
        WIFI_LOGE("Wpa socket directory has been removed, and %s cannot be watched: err %d",
                  parent.c_str(), errno);
        return;
    }
    WIFI_LOGW("Wpa socket directory has been removed: waiting for the next one");
    watchNextDirectory_();  // it may have been made before the parent was watched
}

void WpaClient::onParentChange_(uint32_t mask) {
    if ((mask & IN_IGNORED) != 0) {
        parentWatch_ = -1;
        WIFI_LOGE(
            "Wpa socket directory has been removed with its parent: no longer waiting for it");
    } else {
        watchNextDirectory_();
    }
}

void WpaClient::watchNextDirectory_() {
    if (!watchDirectory_()) {
        return;
    }
    stopParentWatch_();
    // Sockets may have been made in it before it was watched.
    for (const NetInterfaceType type : {NetInterfaceType::STA, NetInterfaceType::P2P}) {
        if (const auto socket = findSocket_(type)) {
            findSocketFile_(type, *socket);
        }
    }
}

void WpaClient::stopParentWatch_() {
    if (parentWatch_ >= 0) {
        inotify_rm_watch(inotifyFd_.get(), parentWatch_);
    }
    parentWatch_ = -1;
}

void WpaClient::stopWpaSocketMonitor_() {
    if (inotifyFd_ < 0) {
        return;
    }
    if (watch_ >= 0) {
        inotify_rm_watch(inotifyFd_.get(), watch_);
    }
    watch_ = -1;
    parentWatch_ = -1;  // ends with the descriptor
    poll_->removeFd(inotifyFd_.get());
    inotifyFd_.reset();
}

void WpaClient::startListener_() {
    if (running_) {
        return;
    }
    if (listener_.joinable()) {
        listener_.join();
    }
    running_ = true;  // set here, so that a stop before the thread runs is not overwritten
    listener_ = std::thread([this] { listen_(); });
}

void WpaClient::listen_() {
    WIFI_LOGD("Wpa client starts listener thread.");
    int failures = 0;  // in a row
    while (running_) {
        try {
            if (failures > 0) {
                startOver_();
            }
            poll_->poll(kListenerTimeoutMs);
            failures = 0;
        } catch (const std::exception& error) {
            WIFI_LOGE("Listener failed and goes on: %s", error.what());
            if (++failures > 1) {
                std::this_thread::sleep_for(kPauseAfterFailures);
            }
        }
    }
}

void WpaClient::stopListener_() {
    if (!listener_.joinable()) {
        return;
    }
    running_ = false;
    eventFd_.post([] {});  // wakes the loop
    listener_.join();
}

PollAction WpaClient::onSocketUpdate_(int fd, int events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        WIFI_LOGE("onSocketUpdate_: unexpected poll error: 0x%08x", events);
        return PollAction::Remove;
    }
    if ((events & EPOLLIN) == 0) {
        return PollAction::Continue;
    }
    alignas(inotify_event) std::array<char, kInotifyBufferSize> buffer = {};
    const ssize_t length = read(fd, buffer.data(), buffer.size());
    if (length < 0) {
        WIFI_LOGE("Failed to read wpa socket directory update");
        return PollAction::Continue;
    }
    for (size_t offset = 0; offset < static_cast<size_t>(length);) {
        inotify_event record;
        memcpy(&record, buffer.data() + offset, sizeof(record));
        if ((record.mask & IN_Q_OVERFLOW) != 0) {
            onUpdatesLost_();
        } else if (record.wd == watch_ && (record.mask & IN_IGNORED) != 0) {
            watch_ = -1;
            onDirectoryRemoved_();
        } else if (record.wd == watch_ && record.len > 0) {
            onSocketChange_(record.mask, buffer.data() + offset + sizeof(record));
        } else if (parentWatch_ >= 0 && record.wd == parentWatch_) {
            onParentChange_(record.mask);
        }
        offset += sizeof(record) + record.len;
    }
    return PollAction::Continue;
}

void WpaClient::onSocketChange_(uint32_t mask, const std::string& name) {
    const bool created = (mask & IN_CREATE) != 0;
    if (!created && (mask & IN_DELETE) == 0) {
        return;
    }
    for (const NetInterfaceType type : {NetInterfaceType::STA, NetInterfaceType::P2P}) {
        const auto socket = isSocketName(name, type) ? findSocket_(type) : nullptr;
        if (socket == nullptr) {
            continue;
        }
        WIFI_LOGI("Wpa socket for %s (%s) is %s", toString(type), name.c_str(),
                  created ? "created" : "deleted");
        if (created) {
            follow_(type, *socket, directory_ + name);
        } else {
            // Whatever path the socket is on: deleting any matching file stops it.
            leave_(type, *socket);
        }
        return;
    }
}

void WpaClient::onUpdatesLost_() {
    WIFI_LOGW("Wpa socket directory updates were lost: looking at the directory again");
    // The directory's removal may be among the lost updates. Adding the watch again changes nothing
    // if it is still the same directory.
    if (watchDirectory_()) {
        stopParentWatch_();
    } else {
        onDirectoryRemoved_();
    }
    for (const NetInterfaceType type : {NetInterfaceType::STA, NetInterfaceType::P2P}) {
        if (const auto socket = findSocket_(type)) {
            findSocketFileAgain_(type, *socket);
        }
    }
}

void WpaClient::startOver_() {
    for (const NetInterfaceType type : {NetInterfaceType::STA, NetInterfaceType::P2P}) {
        const auto socket = findSocket_(type);
        if (socket != nullptr && socket->state() != WpaSocket::State::Connected) {
            MutexLock lock(socketsMutex_);
            followed_.erase(type);
        }
    }
    onUpdatesLost_();
}

void WpaClient::findSocketFileAgain_(NetInterfaceType type, WpaSocket& socket) {
    SocketFile known;
    {
        MutexLock lock(socketsMutex_);
        known = followed_[type];
    }
    SocketFile newest;
    if (!known.path.empty() && identify_(known.path) == known) {
        newest = known;
    }
    const Directory directory = openDirectory(directory_);
    while (const dirent* entry = directory == nullptr ? nullptr : readdir(directory.get())) {
        if (entry->d_type == DT_SOCK && isSocketName(entry->d_name, type)) {
            const SocketFile file = identify_(directory_ + entry->d_name);
            if (newest.path.empty() || newest.made < file.made) {
                newest = file;
            }
        }
    }
    if (newest == known) {
        return;
    }
    if (newest.path.empty()) {
        WIFI_LOGI("Wpa socket for %s (%s) is deleted", toString(type),
                  known.path.substr(known.path.rfind('/') + 1).c_str());
        leave_(type, socket);
    } else {
        WIFI_LOGI("wpa %s socket file (%s) exists. Try to connect now", toString(type),
                  newest.path.c_str());
        follow_(type, socket, newest.path);
    }
}

}  // namespace Ursa::OS::Wifi
