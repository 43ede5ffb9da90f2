#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/support/TempFolder.h"
#include "tools/TraceFile.h"

namespace Ursa::OS::Wifi::Tools {
namespace {

using ::testing::MatchesRegex;

class TraceFiles : public ::testing::Test {
  protected:
    std::vector<std::string> lines() const {
        std::ifstream in(path_);
        std::vector<std::string> found;
        for (std::string line; std::getline(in, line);) {
            found.push_back(line);
        }
        return found;
    }

    bool woken() const {
        pollfd end = {failed_.fd(), POLLIN, 0};
        return poll(&end, 1, 0) == 1;
    }

    test::TempFolder folder_;
    const std::string path_ = folder_.file("trace");
    WakeFd failed_;
};

TEST_F(TraceFiles, LineHasTypeAndTimesBeforeItsFields) {
    TraceFile file(path_, Existing::Refuse, failed_);
    file.writeHeader({{"type", "header"}});
    file.write("note", {{"text", "a\n"}});
    ASSERT_EQ(lines().size(), 2U);
    EXPECT_THAT(lines()[0], MatchesRegex(R"(\{"type":"header","start_wall":[0-9.]+\})"));
    EXPECT_THAT(lines()[1],
                MatchesRegex(R"(\{"type":"note","t":[0-9.]+,"wall":[0-9.]+,"text":"a\\n"\})"));
    EXPECT_EQ(file.error(), 0);
    EXPECT_FALSE(woken());
}

TEST_F(TraceFiles, LinesOfSeveralThreadsStayWholeAndInTheOrderOfTheirTimes) {
    TraceFile file(path_, Existing::Refuse, failed_);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&file] {
            for (int n = 0; n < 200; ++n) {
                file.write("note", {{"text", std::string(100, 'x')}});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    double last = 0;
    for (const std::string& line : lines()) {
        const Json record = Json::parse(line);
        EXPECT_GE(record["t"].get<double>(), last);
        last = record["t"];
    }
    EXPECT_EQ(lines().size(), 800U);
}

TEST_F(TraceFiles, FileThatIsThereIsRefusedOrOverwritten) {
    std::ofstream(path_) << "a long text that was there before\n";
    EXPECT_THROW(TraceFile(path_, Existing::Refuse, failed_), std::runtime_error);
    TraceFile file(path_, Existing::Overwrite, failed_);
    file.write("note", {});
    EXPECT_EQ(lines().size(), 1U);
}

/** Standard output is the end of a file that can grow to a size, until this goes. */
class FullOutput {
  public:
    FullOutput(const std::string& path, rlim_t size) {
        std::fflush(stdout);
        const ::android::base::unique_fd file(::open(path.c_str(), O_WRONLY | O_APPEND));
        ::dup2(file.get(), STDOUT_FILENO);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {size, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullOutput() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        ::dup2(output_.get(), STDOUT_FILENO);
        std::signal(SIGXFSZ, handler_);
    }
    FullOutput(const FullOutput&) = delete;
    FullOutput& operator=(const FullOutput&) = delete;

  private:
    const ::android::base::unique_fd output_{::dup(STDOUT_FILENO)};
    void (*const handler_)(int) = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before_ = {};
};

TEST_F(TraceFiles, LineCutOnStandardOutputIsTakenBackAndWhatStoodThereBeforeStays) {
    std::ofstream(path_) << "earlier\n";
    {
        const FullOutput output(path_, 150);
        TraceFile file("-", Existing::Refuse, failed_);
        file.write("note", {{"text", "fits"}});
        file.write("note", {{"text", std::string(100, 'x')}});
    }
    ASSERT_EQ(lines().size(), 2U);
    EXPECT_EQ(lines()[0], "earlier");
    EXPECT_EQ(Json::parse(lines()[1])["text"], "fits");
    EXPECT_TRUE(woken());
}

TEST_F(TraceFiles, LineOfWhichNothingIsWrittenLeavesWhatStoodThereBefore) {
    std::ofstream(path_) << "earlier\n";
    {
        const FullOutput output(path_, 8);
        TraceFile file("-", Existing::Refuse, failed_);
        file.write("note", {});
    }
    EXPECT_EQ(lines(), std::vector<std::string>{"earlier"});
}

TEST_F(TraceFiles, FullDiskWakesAndEndsTheWriting) {
    TraceFile file("/dev/full", Existing::Overwrite, failed_);
    file.write("note", {});
    EXPECT_EQ(file.error(), ENOSPC);
    EXPECT_TRUE(woken());
}

}  // namespace
}  // namespace Ursa::OS::Wifi::Tools
