#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "host/log/TagFilter.h"
#include "tests/host/platform/TempRoot.h"

namespace {

using android::base::unique_fd;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

/** Starts the probe with `tags` as ANDROID_LOG_TAGS (null: unset) and that standard error. */
pid_t startProbe(const char* what, const char* tags, int standardError) {
    const std::string variable = tags != nullptr ? std::string("ANDROID_LOG_TAGS=") + tags : "";
    std::vector<char*> environment;
    for (char** entry = environ; *entry != nullptr; entry++) {
        if (std::string_view(*entry).rfind("ANDROID_LOG_TAGS=", 0) != 0) {
            environment.push_back(*entry);
        }
    }
    if (tags != nullptr) {
        environment.push_back(const_cast<char*>(variable.c_str()));
    }
    environment.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, standardError, STDERR_FILENO);
    const char* arguments[] = {LOG_PROBE, what, nullptr};
    pid_t pid = -1;
    const int error = posix_spawn(&pid, LOG_PROBE, &actions, nullptr, const_cast<char**>(arguments),
                                  environment.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(error, 0);
    return pid;
}

/** What each write(2) of `probes` probes to their common standard error carried. */
std::vector<std::string> writesOf(const char* what, const char* tags, int probes = 1) {
    int ends[2] = {-1, -1};
    // A socket that keeps each write apart.
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    std::vector<pid_t> pids;
    pids.reserve(static_cast<size_t>(probes));
    for (int i = 0; i < probes; i++) {
        pids.push_back(startProbe(what, tags, writer));
    }
    writer.reset();
    std::vector<std::string> writes;
    std::string buffer(65536, '\0');
    for (ssize_t size; (size = recv(reader, buffer.data(), buffer.size(), 0)) > 0;) {
        writes.emplace_back(buffer, 0, static_cast<size_t>(size));
    }
    for (const pid_t pid : pids) {
        int status = -1;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
    }
    return writes;
}

/** The levels (V, D...) that a run of the probe shows of one tag. */
std::string levelsOf(const std::vector<std::string>& lines, const std::string& tag) {
    std::string levels;
    for (const std::string& line : lines) {
        if (line.rfind(tag + ' ', 0) == 0) {
            levels += line[tag.size() + 1];
        }
    }
    return levels;
}

/** "MM-DD HH:MM:SS" */
std::string localTime(time_t second) {
    struct tm local = {};
    localtime_r(&second, &local);
    char text[32];
    strftime(text, sizeof(text), "%m-%d %H:%M:%S", &local);
    return text;
}

TEST(HostLog, InfoAndAboveAreShownWithoutTheVariable) {
    const std::vector<std::string> lines = writesOf("levels", nullptr);
    EXPECT_EQ(levelsOf(lines, "CorvidWifi"), "IWEF");
    EXPECT_EQ(levelsOf(lines, "Other"), "IWEF");
}

TEST(HostLog, WordForATagSetsTheLevelOfThatTagOnly) {
    const std::map<std::string, std::string> shown = {
        {"V", "VDIWEF"}, {"D", "DIWEF"}, {"I", "IWEF"}, {"W", "WEF"},
        {"E", "EF"},     {"F", "F"},     {"S", ""}};
    for (const auto& [level, levels] : shown) {
        const std::vector<std::string> lines = writesOf("levels", ("CorvidWifi:" + level).c_str());
        EXPECT_EQ(levelsOf(lines, "CorvidWifi"), levels) << level;
        EXPECT_EQ(levelsOf(lines, "Other"), "IWEF") << level;
    }
}

TEST(HostLog, StarSetsTheLevelOfTagsWithoutAWordOfTheirOwn) {
    const std::vector<std::string> lines = writesOf("levels", "*:E CorvidWifi:D");
    EXPECT_EQ(levelsOf(lines, "CorvidWifi"), "DIWEF");
    EXPECT_EQ(levelsOf(lines, "Other"), "EF");
}

TEST(HostLog, LineOfAStaticObjectIsFilteredToo) {
    EXPECT_THAT(writesOf("nothing", "Early:I"), SizeIs(0));
    EXPECT_THAT(writesOf("nothing", "Early:D"), ElementsAre(HasSubstr("before main")));
}

TEST(HostLog, LineLooksLikeLiblogs) {
    EXPECT_THAT(writesOf("levels", "*:S CorvidWifi:F"),
                ElementsAre(MatchesRegex("CorvidWifi F [0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                         " +[0-9]+ +[0-9]+ level 7\n")));
}

TEST(HostLog, LinesOfSeveralThreadsAndProgramsDoNotMix) {
    const std::vector<std::string> writes = writesOf("storm", nullptr, 2);
    EXPECT_THAT(writes, SizeIs(2 * 4 * 500));
    EXPECT_THAT(writes, Each(MatchesRegex("CorvidWifi I .* (a{400}|b{400}|c{400}|d{400})\n")));
}

TEST(HostLog, TimeOfALineIsThatOfItsSecond) {
    std::set<std::string> times;
    for (const std::string& line : writesOf("seconds", nullptr)) {
        const std::vector<std::string> fields = android::base::Split(line, " ");
        const std::string time = android::base::Join(std::vector{fields.at(2), fields.at(3)}, ' ');
        times.insert(time);
        // The second may have ended between the number's making and the line's.
        const auto second = static_cast<time_t>(std::stoll(fields.back()));
        EXPECT_THAT(time, AnyOf(localTime(second), localTime(second + 1)));
    }
    EXPECT_THAT(times, SizeIs(Ge(2u)));
}

TEST(HostLog, IdsInThreadsAndForksAreTheWriters) {
    const std::vector<std::string> lines = writesOf("ids", nullptr);
    std::set<std::string> writers;
    for (const std::string& line : lines) {
        std::istringstream fields(line.substr(sizeof("CorvidWifi I MM-DD HH:MM:SS")));
        std::string pid;
        std::string tid;
        std::string ownPid;
        std::string ownTid;
        fields >> pid >> tid >> ownPid >> ownTid;
        EXPECT_EQ(pid, ownPid) << line;
        EXPECT_EQ(tid, ownTid) << line;
        writers.insert(android::base::Join(std::vector{pid, tid}, ' '));
    }
    EXPECT_THAT(lines, SizeIs(2 * (4 + 3)));
    EXPECT_THAT(writers, SizeIs(3 + 2));
}

TEST(HostLog, LineOfAnyLengthIsWrittenWholeAtOnce) {
    const std::vector<std::string> writes = writesOf("lengths", nullptr);
    ASSERT_THAT(writes, SizeIs(202));
    for (size_t i = 0; i < writes.size(); i++) {
        const size_t length = i < 201 ? 1900 + i : 10000;
        const size_t begin = writes[i].find('x');
        EXPECT_EQ(writes[i].substr(begin), std::string(length, 'x') + '\n');
        EXPECT_THAT(writes[i].substr(0, begin), MatchesRegex("CorvidWifi I [-0-9: ]+ "));
    }
}

TEST(HostLog, FileAndLineAreShownBeforeTheText) {
    EXPECT_THAT(writesOf("place", nullptr),
                ElementsAre(MatchesRegex("CorvidWifi I [-0-9: ]+ File.cpp:12\\] from a place\n")));
}

TEST(TagFilter, UnknownWordsAreIgnored) {
    const host::TagFilter filter(
        "CorvidWifi CorvidWifi: :V CorvidWifi:Q : CorvidWifi::V CorvidWifi:XV *:Q * Other:d");
    EXPECT_FALSE(filter.shows(ANDROID_LOG_DEBUG, "CorvidWifi"));
    EXPECT_TRUE(filter.shows(ANDROID_LOG_INFO, "CorvidWifi"));
    EXPECT_TRUE(filter.shows(ANDROID_LOG_DEBUG, "Other"));
}

TEST(TagFilter, LastWordAboutATagCounts) {
    const host::TagFilter filter("\tCorvidWifi:V CorvidWifi:W\n");
    EXPECT_FALSE(filter.shows(ANDROID_LOG_INFO, "CorvidWifi"));
    EXPECT_TRUE(filter.shows(ANDROID_LOG_WARN, "CorvidWifi"));
}

TEST(TagFilter, TagIsComparedAsAWhole) {
    const host::TagFilter filter("Corvid:V CorvidWifiX:V");
    EXPECT_FALSE(filter.shows(ANDROID_LOG_DEBUG, "CorvidWifi"));
}

TEST(TagFilter, LevelIsTheFirstLetterInEitherCase) {
    EXPECT_EQ(host::TagFilter::levelOf("V"), ANDROID_LOG_VERBOSE);
    EXPECT_EQ(host::TagFilter::levelOf("e"), ANDROID_LOG_ERROR);
    EXPECT_EQ(host::TagFilter::levelOf("S"), ANDROID_LOG_SILENT);
    EXPECT_EQ(host::TagFilter::levelOf("VERBOSE"), ANDROID_LOG_VERBOSE);
    EXPECT_EQ(host::TagFilter::levelOf("debug"), ANDROID_LOG_DEBUG);
    for (const char* text : {"", "X", "XV", " ", "?"}) {
        EXPECT_EQ(host::TagFilter::levelOf(text), 0) << text;
    }
}

/** Whether the library would format a line of the daemon's; this process shows INFO and above. */
bool isLoggable(int priority, const char* tag = "CorvidWifi") {
    return __android_log_is_loggable(priority, tag, ANDROID_LOG_VERBOSE) != 0;
}

/** Waits until it is as wanted. Returns false after 5 s; it is to be there within one. */
bool becomes(int priority, bool loggable) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (isLoggable(priority) != loggable) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

TEST(HostLog, PropertySetsTheLevelOfTheDaemonsTagWhileItRuns) {
    const TempRoot root;
    const std::string property = root.path("/dev/__properties__/log.tag.CorvidWifi");
    std::filesystem::create_directories(root.path("/dev/__properties__"));
    const auto set = [&](const std::string& value) {
        std::ofstream(property + ".new") << value << "\n";
        std::filesystem::rename(property + ".new", property);
    };
    set("D");
    EXPECT_TRUE(becomes(ANDROID_LOG_DEBUG, true));
    EXPECT_FALSE(isLoggable(ANDROID_LOG_VERBOSE));
    EXPECT_FALSE(isLoggable(ANDROID_LOG_DEBUG, "Other"));
    set("E");
    EXPECT_TRUE(becomes(ANDROID_LOG_INFO, false));
    EXPECT_TRUE(isLoggable(ANDROID_LOG_ERROR));
    set("S");
    EXPECT_TRUE(becomes(ANDROID_LOG_FATAL, false));
    set("loud");  // no level: as if it were not set
    EXPECT_TRUE(becomes(ANDROID_LOG_INFO, true));
    EXPECT_FALSE(isLoggable(ANDROID_LOG_DEBUG));
    set("v");
    EXPECT_TRUE(becomes(ANDROID_LOG_VERBOSE, true));
    std::filesystem::remove(property);
    EXPECT_TRUE(becomes(ANDROID_LOG_DEBUG, false));
    EXPECT_TRUE(isLoggable(ANDROID_LOG_INFO));
}

}  // namespace
