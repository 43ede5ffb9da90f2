#pragma once

#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <corvid/test/1.0/IEcho.h>
#include <gtest/gtest.h>

#include "tests/host/hidl/Programs.h"
#include "tests/host/platform/TempRoot.h"

/** A root with the folder where processes meet, and usually a server in it. */
class HidlTest : public testing::Test {
  protected:
    using IEcho = corvid::test::V1_0::IEcho;
    using ICallback = corvid::test::V1_0::ICallback;

    HidlTest() { std::filesystem::create_directories(folder()); }

    std::string folder() const { return root_.path("/dev/hwbinder"); }

    /** Starts the server and returns its service. */
    android::sp<IEcho> serve() {
        server_.emplace("hidl-echo-server");
        EXPECT_EQ("ready", server_->line());
        return IEcho::tryGetService();
    }

    /** The socket that the server listens on. */
    std::string endpoint() const {
        char prefix[16];
        std::snprintf(prefix, sizeof(prefix), "e.%08x", static_cast<unsigned>(server_->pid()));
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            if (entry.path().filename().string().compare(0, 10, prefix) == 0) {
                return entry.path();
            }
        }
        return "";
    }

    /** How many processes listen, or have left their sockets behind. */
    int countEndpoints() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            count += entry.is_socket() ? 1 : 0;
        }
        return count;
    }

    Program& server() { return *server_; }

    TempRoot root_;

  private:
    std::optional<Program> server_;
};

/** An object of the test that calls functions of the test. */
class TestCallback : public corvid::test::V1_0::ICallback {
  public:
    explicit TestCallback(
        std::function<int32_t(int32_t)> function = [](int32_t n) { return n; },
        std::function<void()> onEnd = nullptr)
        : function_(std::move(function)), onEnd_(std::move(onEnd)) {}
    ~TestCallback() override {
        if (onEnd_ != nullptr) {
            onEnd_();
        }
    }
    android::hardware::Return<int32_t> onCall(int32_t number) override { return function_(number); }

  private:
    const std::function<int32_t(int32_t)> function_;
    const std::function<void()> onEnd_;
};

/** Something that one thread waits for and another one does. */
class Signal {
  public:
    void set() {
        std::lock_guard<std::mutex> lock(mutex_);
        set_ = true;
        changed_.notify_all();
    }
    /** False when it is not set within 10 s. */
    bool wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return set_; });
    }
    bool isSet() {
        std::lock_guard<std::mutex> lock(mutex_);
        return set_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};
