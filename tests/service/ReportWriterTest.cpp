#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <string>
#include <thread>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "service/ReportWriter.h"
#include "tests/support/TempFolder.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaitsIn.h"

namespace Ursa::OS::Wifi {
namespace {

using namespace std::chrono_literals;
using ::android::base::unique_fd;

/** The system call in which poll() waits. Not every processor has one of that name. */
#ifdef SYS_poll
constexpr long kPollCall = SYS_poll;
#else
constexpr long kPollCall = SYS_ppoll;
#endif

struct Pipe {
    Pipe() { EXPECT_TRUE(::android::base::Pipe(&read, &write)); }
    unique_fd read;
    unique_fd write;
};

std::string readAll(const unique_fd& input) {
    std::string all;
    char part[1000];
    for (ssize_t size = 0; (size = read(input.get(), part, sizeof(part))) > 0;) {
        all.append(part, static_cast<size_t>(size));
    }
    return all;
}

TEST(ReportWriter, ReaderGetsAllOfATextThatIsLargerThanThePipe) {
    Pipe pipe;
    auto text = std::async(std::launch::async, [&] { return readAll(pipe.read); });
    const std::string report(300'000, 'x');
    EXPECT_TRUE(ReportWriter(pipe.write.get(), 10s).write(report));
    EXPECT_EQ(fcntl(pipe.write.get(), F_GETFL) & O_NONBLOCK, 0) << "the caller's flags are changed";
    pipe.write.reset();
    EXPECT_EQ(text.get(), report);
}

TEST(ReportWriter, PipeThatNobodyReadsIsGivenUp) {
    Pipe pipe;
    const auto start = std::chrono::steady_clock::now();
    const std::string report(300'000, 'x');
    EXPECT_FALSE(ReportWriter(pipe.write.get(), 20ms).write(report));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
    EXPECT_EQ(fcntl(pipe.write.get(), F_GETFL) & O_NONBLOCK, 0) << "the caller's flags are changed";
    pipe.write.reset();
    EXPECT_GE(readAll(pipe.read).size(), 4096U);
}

TEST(ReportWriter, NothingIsWrittenAfterAPieceThatWasNotTaken) {
    Pipe pipe;
    ReportWriter writer(pipe.write.get(), 20ms);
    const std::string report(300'000, 'x');
    EXPECT_FALSE(writer.write(report));
    char page[4096];
    ASSERT_EQ(read(pipe.read.get(), page, sizeof(page)), 4096);  // there is room again
    EXPECT_FALSE(writer.write("y"));
    pipe.write.reset();
    EXPECT_EQ(readAll(pipe.read).find('y'), std::string::npos);
}

TEST(ReportWriter, ReaderThatTakesAByteNowAndThenIsGivenUp) {
    Pipe pipe;
    auto reader = std::async(std::launch::async, [&] {
        char page[4096];
        int pages = 0;
        for (; read(pipe.read.get(), page, sizeof(page)) > 0; ++pages) {
            std::this_thread::sleep_for(10ms);
        }
        return pages;
    });
    const std::string report(50'000'000, 'x');
    EXPECT_FALSE(ReportWriter(pipe.write.get(), 20ms).write(report));
    pipe.write.reset();
    EXPECT_GT(reader.get(), 0);
}

TEST(ReportWriter, SignalThatIsHandledDoesNotEndTheWaitForTheReader) {
    static std::atomic<int> handled{0};
    struct sigaction action = {};
    action.sa_handler = [](int) { ++handled; };
    struct sigaction before = {};
    sigaction(SIGUSR2, &action, &before);
    Pipe pipe;
    std::promise<pid_t> started;
    const std::string report(300'000, 'x');
    bool isWritten = false;
    std::thread writer([&] {
        started.set_value(gettid());
        isWritten = ReportWriter(pipe.write.get(), 60s).write(report);
        pipe.write.reset();
    });
    const pid_t thread = started.get_future().get();
    EXPECT_TRUE(test::waitUntil([&] { return test::waitsIn(thread, kPollCall); }));
    for (int i = 1; i <= 3; ++i) {
        pthread_kill(writer.native_handle(), SIGUSR2);
        EXPECT_TRUE(test::waitUntil([&] { return handled == i; }));
    }
    EXPECT_EQ(readAll(pipe.read).size(), report.size());
    writer.join();
    EXPECT_TRUE(isWritten);
    sigaction(SIGUSR2, &before, nullptr);
}

TEST(ReportWriter, ClosedPipeRaisesNoSignal) {
    Pipe pipe;
    pipe.read.reset();
    EXPECT_FALSE(
        ReportWriter(pipe.write.get(), 10s).write("text"));  // else SIGPIPE has ended the test
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(ReportWriter, SignalThatWasPendingStaysSo) {
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    pthread_kill(pthread_self(), SIGPIPE);
    Pipe pipe;
    pipe.read.reset();
    EXPECT_FALSE(ReportWriter(pipe.write.get(), 10s).write("text"));
    const timespec none = {};
    EXPECT_EQ(sigtimedwait(&pipeSignal, nullptr, &none), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(ReportWriter, FullDiskIsGivenUpAtOnce) {
    const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full.ok());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(ReportWriter(full.get(), 10s).write("text"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST(ReportWriter, DescriptorThatIsNoneOrCannotBeWrittenIsGivenUpAtOnce) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(ReportWriter(-1, 10s).write("text"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    Pipe pipe;
    EXPECT_FALSE(ReportWriter(pipe.read.get(), 20ms).write("text"));
}

TEST(ReportWriter, SocketAndFileAreWrittenToo) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    EXPECT_TRUE(ReportWriter(writer.get(), 10s).write("to a socket"));
    writer.reset();
    EXPECT_EQ(readAll(reader), "to a socket");

    const test::TempFolder folder;
    const unique_fd file(open(folder.file("report").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_TRUE(ReportWriter(file.get(), 10s).write("to a file"));
    lseek(file.get(), 0, SEEK_SET);
    EXPECT_EQ(readAll(file), "to a file");
}

TEST(ReportWriter, SocketWhosePeerHasGoneRaisesNoSignal) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const unique_fd writer(ends[1]);
    close(ends[0]);
    EXPECT_FALSE(ReportWriter(writer.get(), 10s).write("text"));
}

}  // namespace
}  // namespace Ursa::OS::Wifi
