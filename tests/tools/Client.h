#pragma once

#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Program.h"

namespace test {

/** How a run of corvid-wifi went. */
struct Outcome {
    int status;
    std::string output;
    std::string error;
};

/** Runs corvid-wifi in a root of its own, with a service that records what it is asked. */
class Client : public ::testing::Test {
  protected:
    Client() {
        std::string name = std::filesystem::temp_directory_path() / "corvid-wifi.XXXXXX";
        root_ = mkdtemp(name.data());
        std::filesystem::create_directories(root_ + "/dev/hwbinder");
        options_.environment = {"CORVID_WIFI_ROOT=" + root_};
    }

    ~Client() override {
        service_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    /** Waits for the end of one that dies, which has the name until then. */
    void startService() {
        if (service_ != nullptr) {
            service_->wait();
        }
        service_ = std::make_unique<Program>(std::vector<std::string>{FAKE_WIFI_SERVICE}, options_);
        ASSERT_EQ(service_->readLine(), "ready") << service_->readError();
    }

    /** Has the service do something, see FakeWifiService.cpp. */
    void tell(const std::string& line) {
        service_->writeLine(line);
        ASSERT_EQ(service_->readLine(), "ok");
    }

    std::unique_ptr<Program> start(const std::vector<std::string>& words) {
        std::vector<std::string> command = {CORVID_WIFI};
        command.insert(command.end(), words.begin(), words.end());
        return std::make_unique<Program>(command, options_);
    }

    Outcome run(const std::vector<std::string>& words) {
        const auto program = start(words);
        Outcome result;
        result.output = program->readOutput();
        result.error = program->readError();
        result.status = program->wait();
        return result;
    }

    std::string root_;
    Program::Options options_;
    std::unique_ptr<Program> service_;
};

}  // namespace test
