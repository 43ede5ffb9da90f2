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
