#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/resource.h>

#include "host/atrace/TraceFile.h"
#include "tests/host/platform/TempRoot.h"

namespace {

using host::TraceEvent;
using host::TraceFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Json = nlohmann::json;
namespace fs = std::filesystem;

constexpr size_t kLimit = 16'384;

/** No file grows beyond a size, as on a full disk, for a scope. */
class FullDisk {
  public:
    explicit FullDisk(rlim_t size) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {size, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    rlimit before_ = {};
};

class TraceFileTest : public testing::Test {
  protected:
    /** The names of the slices in a file, which must be complete JSON. */
    std::vector<std::string> slices(const std::string& path = kPath) const {
        std::vector<std::string> names;
        for (const Json& event : Json::parse(root_.read(path))) {
            if (event.at("ph") == "B") {
                names.push_back(event.at("name"));
            }
        }
        return names;
    }

    void add(const std::string& name) { file_.add(TraceEvent::sliceBegin(name)); }

    size_t size() const { return static_cast<size_t>(fs::file_size(root_.path(kPath))); }

    static constexpr char kPath[] = "/data/misc/trace/test.json";
    const std::string previous_ = TraceFile::previousPath(kPath);
    TempRoot root_;
    TraceFile file_{kPath, kLimit};
};

TEST_F(TraceFileTest, NothingIsWrittenBeforeTheFirstEvent) {
    EXPECT_FALSE(fs::exists(root_.path("/data")));
}

TEST_F(TraceFileTest, FileIsCompleteJsonAfterEachEvent) {
    for (const char* name : {"one", "two", "three"}) {
        add(name);
        EXPECT_EQ(slices().back(), name);
    }
    EXPECT_THAT(slices(), ElementsAre("one", "two", "three"));
}

TEST_F(TraceFileTest, FileBeginsWithTheProcessName) {
    add("one");
    const Json first = Json::parse(root_.read(kPath)).at(0);
    EXPECT_EQ(first.at("name"), "process_name");
    EXPECT_EQ(first.at("args").at("name"), "host_atrace_test");
}

TEST_F(TraceFileTest, NextFileKeepsTheOneBefore) {
    add("first");
    file_.close();
    add("second");
    EXPECT_THAT(slices(), ElementsAre("second"));
    EXPECT_THAT(slices(previous_), ElementsAre("first"));
    file_.close();
    add("third");
    EXPECT_THAT(slices(), ElementsAre("third"));
    EXPECT_THAT(slices(previous_), ElementsAre("second"));
}

TEST_F(TraceFileTest, FilesStayWithinTheLimit) {
    for (int i = 0; i < 1000; ++i) {
        add(std::to_string(i));
        ASSERT_LE(size(), kLimit);
    }
    const std::vector<std::string> last = slices();
    EXPECT_EQ(last.back(), "999");
    // No event is lost between the two files.
    EXPECT_EQ(std::stoi(slices(previous_).back()) + 1, std::stoi(last.front()));
    EXPECT_LE(fs::file_size(root_.path(previous_)), kLimit);
}

TEST_F(TraceFileTest, DeletedFileIsBegunAnew) {
    add("one");
    fs::remove_all(root_.path("/data"));
    add("two");
    EXPECT_THAT(slices(), ElementsAre("two"));
}

TEST_F(TraceFileTest, EventsOfAFullDiskAreLostAndTheOthersStay) {
    add("before");
    testing::internal::CaptureStderr();
    {
        const FullDisk full(size() + 20);  // a part of an event fits
        for (int i = 0; i < 10; ++i) {
            add("lost");
            EXPECT_THAT(slices(), ElementsAre("before"));
        }
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("Trace: cannot write " + root_.path(kPath)));
    EXPECT_THAT(log.substr(log.find('\n') + 1), IsEmpty()) << "more than one line";
    add("after");
    EXPECT_THAT(slices(), ElementsAre("before", "after"));
}

TEST_F(TraceFileTest, FileThatCannotBeCreatedCostsNothingButTheTrace) {
    root_.write("/data/misc", "no folder");
    testing::internal::CaptureStderr();
    for (int i = 0; i < 1000; ++i) {
        add("lost");
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("Trace: cannot "));
    EXPECT_THAT(log.substr(log.find('\n') + 1), IsEmpty()) << "more than one line";

    // Once it can, a new attempt is made within a second.
    fs::remove(root_.path("/data/misc"));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!fs::exists(root_.path(kPath)) && std::chrono::steady_clock::now() < end) {
        add("kept");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_THAT(slices(), ElementsAre("kept"));
}

TEST_F(TraceFileTest, WhatLiesInTheFilesPlaceIsNotWrittenTo) {
    const std::string other = root_.path("/other");
    root_.write("/other", "not a trace");
    fs::create_directories(root_.path("/data/misc/trace"));
    fs::create_symlink(other, root_.path(kPath));
    add("one");
    EXPECT_EQ(root_.read("/other"), "not a trace");
    EXPECT_THAT(slices(), ElementsAre("one"));
}

}  // namespace
