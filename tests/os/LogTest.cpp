#include <climits>
#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "os/Log.h"
#include "tests/os/LogFromHeader.h"
#include "tests/support/LogCapture.h"

namespace Ursa::OS {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

static_assert(sourceName("managers/StaManager.cpp") == "StaManager");
static_assert(sourceName("/a.b/StaManager.cpp") == "StaManager");
static_assert(sourceName("CallbackMapRegister.h") == "CallbackMapRegister");
static_assert(sourceName("a/Makefile") == "Makefile");

TEST(Log, LineBeginsWithItsSourceFilesNameAndCarriesTheDaemonsTag) {
    const test::LogCapture log;
    WIFI_LOGI("the answer is %d", 42);
    ASSERT_THAT(log.lines(), SizeIs(1));
    EXPECT_EQ(log.lines()[0].tag, "CorvidWifi");
    EXPECT_EQ(log.lines()[0].message, "LogTest: the answer is 42");
    EXPECT_EQ(log.lines()[0].priority, ANDROID_LOG_INFO);
}

/** Whether a line of these arguments is what snprintf() makes of them. */
template <typename... Arguments>
void expectAsSnprintf(const char* format, Arguments... arguments) {
    const test::LogCapture log;
    char expected[1500];
    snprintf(expected, sizeof(expected), format, arguments...);
    logLine(ANDROID_LOG_INFO, "Source", format, arguments...);
    ASSERT_THAT(log.lines(), SizeIs(1));
    EXPECT_EQ(log.lines()[0].message, ("Source: " + std::string(expected)).substr(0, 1023));
}

TEST(Log, LineIsFormattedAsTheCLibraryDoes) {
    expectAsSnprintf("no argument%s", "");
    expectAsSnprintf("%s", "first and last");
    expectAsSnprintf("%s rssi:%d freq:%d", "StaManager event(CONNECTED)", -40, 5180);
    expectAsSnprintf("%d%d,%d", INT_MIN, INT_MAX, 0);
    expectAsSnprintf("[%u|%u]", 0U, UINT_MAX);
}

TEST(Log, LineWithOtherConversionsIsFormattedAsTheCLibraryDoes) {
    expectAsSnprintf("%s is 100 %% of %d", "it", 7);
    expectAsSnprintf("%s %5d|%-5d|%05d", "wide", 1, 2, 3);
    expectAsSnprintf("%d %.2s %-4s.", 1, "cut", "w");
    expectAsSnprintf("%u %ld %zu %lld", 1U, LONG_MIN, sizeof(int), LLONG_MAX);
    expectAsSnprintf("%s 0x%08x %c %.3f %i", "x", 0xabcU, 'c', 1.5, -3);
    expectAsSnprintf("%d %s", 5, static_cast<const char*>(nullptr));
}

TEST(Log, LineThatIsCutBetweenItsArgumentsIsWhatTheCLibraryCutsItTo) {
    for (const size_t length : {1009U, 1010U, 1011U, 1012U, 1013U, 1014U, 1015U, 1016U}) {
        const std::string text(length, 'x');
        expectAsSnprintf("%s 12%d%s", text.c_str(), 345, "end");
    }
}

TEST(Log, EachMacroHasItsLevel) {
    const test::LogCapture log;
    WIFI_LOGD("a");
    WIFI_LOGI("b");
    WIFI_LOGW("c");
    WIFI_LOGE("d");
    EXPECT_EQ(log.count(ANDROID_LOG_DEBUG, "LogTest: a"), 1u);
    EXPECT_EQ(log.count(ANDROID_LOG_INFO, "LogTest: b"), 1u);
    EXPECT_EQ(log.count(ANDROID_LOG_WARN, "LogTest: c"), 1u);
    EXPECT_EQ(log.count(ANDROID_LOG_ERROR, "LogTest: d"), 1u);
}

TEST(Log, LineFromAHeaderBeginsWithTheHeadersName) {
    const test::LogCapture log;
    logFromHeader();
    EXPECT_EQ(log.count(ANDROID_LOG_WARN, "LogFromHeader: from a header"), 1u);
}

TEST(Log, LineIsCutAtLiblogsLimit) {
    const test::LogCapture log;
    WIFI_LOGE("%s", std::string(5000, 'x').c_str());
    ASSERT_THAT(log.lines(), SizeIs(1));
    EXPECT_EQ(log.lines()[0].message, "LogTest: " + std::string(1023 - 9, 'x'));
}

TEST(Log, LineBelowTheLowestLevelShownIsNotWritten) {
    const test::LogCapture log;
    const int before = __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    WIFI_LOGD("unseen");
    __android_log_set_minimum_priority(before);
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace Ursa::OS
