#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/system_properties.h>

#include "TempRoot.h"

namespace {

/** The text that the callback gets; the name before it, "=" between. */
std::string readBack(const prop_info* property) {
    std::string text;
    __system_property_read_callback(
        property,
        [](void* cookie, const char* name, const char* value, uint32_t) {
            *static_cast<std::string*>(cookie) = std::string(name) + "=" + value;
        },
        &text);
    return text;
}

class SystemProperties : public testing::Test {
  protected:
    TempRoot root_;
};

TEST_F(SystemProperties, ContentOfAFileIsThePropertysValue) {
    root_.write("/dev/__properties__/persist.vendor.wifi.a", "12");
    const prop_info* property = __system_property_find("persist.vendor.wifi.a");
    ASSERT_NE(property, nullptr);
    EXPECT_EQ(readBack(property), "persist.vendor.wifi.a=12");
}

TEST_F(SystemProperties, OneTrailingNewlineIsNotPartOfTheValue) {
    root_.write("/dev/__properties__/one", "12\n");
    root_.write("/dev/__properties__/two", "12\n\n");
    root_.write("/dev/__properties__/only", "\n");
    EXPECT_EQ(readBack(__system_property_find("one")), "one=12");
    EXPECT_EQ(readBack(__system_property_find("two")), "two=12\n");
    EXPECT_EQ(readBack(__system_property_find("only")), "only=");
}

TEST_F(SystemProperties, PropertyWithoutAFileIsNotSet) {
    EXPECT_EQ(__system_property_find("persist.vendor.wifi.a"), nullptr);
    root_.write("/dev/__properties__/other", "1");
    EXPECT_EQ(__system_property_find("persist.vendor.wifi.a"), nullptr);
}

TEST_F(SystemProperties, EmptyFileIsASetPropertyWithAnEmptyValue) {
    root_.write("/dev/__properties__/empty", "");
    ASSERT_NE(__system_property_find("empty"), nullptr);
    EXPECT_EQ(readBack(__system_property_find("empty")), "empty=");
}

TEST_F(SystemProperties, NameThatLeavesTheFolderIsNoProperty) {
    root_.write("/dev/outside", "1");
    root_.write("/dev/__properties__/folder/inside", "1");
    for (const char* name :
         {"", "../outside", "folder/inside", "/etc/passwd", ".", "..", "folder"}) {
        EXPECT_EQ(__system_property_find(name), nullptr) << name;
    }
    EXPECT_EQ(__system_property_find(std::string(5000, 'x').c_str()), nullptr);
}

TEST_F(SystemProperties, FifoIsNoPropertyAndDoesNotBlock) {
    root_.write("/dev/__properties__/a", "1");
    ASSERT_EQ(mkfifo(root_.path("/dev/__properties__/fifo").c_str(), 0600), 0);
    EXPECT_EQ(__system_property_find("fifo"), nullptr);
}

TEST_F(SystemProperties, NextReadSeesAChange) {
    root_.setProperty("changing", "1");
    const prop_info* property = __system_property_find("changing");
    root_.setProperty("changing", "2");
    EXPECT_EQ(readBack(property), "changing=2");
    ASSERT_EQ(unlink(root_.path("/dev/__properties__/changing").c_str()), 0);
    EXPECT_EQ(readBack(property), "changing=");
    EXPECT_EQ(__system_property_find("changing"), nullptr);
    root_.setProperty("changing", "3");
    EXPECT_EQ(readBack(property), "changing=3");
}

TEST_F(SystemProperties, NextReadSeesAChangeOfAnyKind) {
    const std::string folder = root_.path("/dev/__properties__");
    const auto isNotSet = [] { return __system_property_find("a") == nullptr; };
    ASSERT_TRUE(isNotSet());  // nor is there a folder
    root_.write("/dev/__properties__/other", "1");
    EXPECT_TRUE(isNotSet());
    root_.setProperty("a", "1");
    const prop_info* property = __system_property_find("a");
    ASSERT_NE(property, nullptr);
    EXPECT_EQ(readBack(property), "a=1");

    std::ofstream(folder + "/a") << "in place";
    EXPECT_EQ(readBack(property), "a=in place");

    std::filesystem::rename(folder, root_.path("/away"));
    EXPECT_TRUE(isNotSet());
    EXPECT_EQ(readBack(property), "a=");
    root_.setProperty("a", "in a new folder");
    EXPECT_EQ(__system_property_find("a"), property);
    EXPECT_EQ(readBack(property), "a=in a new folder");

    std::filesystem::rename(root_.path(""), root_.path("~"));
    EXPECT_TRUE(isNotSet());
    std::filesystem::rename(root_.path("~"), root_.path(""));
    EXPECT_EQ(__system_property_find("a"), property);
    EXPECT_EQ(readBack(property), "a=in a new folder");

    root_.setProperty("other", "through a link");
    std::filesystem::remove(folder + "/a");
    std::filesystem::create_symlink("other", folder + "/a");
    EXPECT_EQ(__system_property_find("a"), property);
    EXPECT_EQ(readBack(property), "a=through a link");
    std::filesystem::remove(folder + "/a");
    std::filesystem::create_symlink("nowhere", folder + "/a");
    EXPECT_TRUE(isNotSet());
}

TEST_F(SystemProperties, AnotherRootHasOtherProperties) {
    root_.setProperty("a", "1");
    const prop_info* property = __system_property_find("a");
    {
        const TempRoot other;
        EXPECT_EQ(__system_property_find("a"), nullptr);
        other.setProperty("a", "2");
        EXPECT_EQ(readBack(property), "a=2");
    }
    setenv("CORVID_WIFI_ROOT", root_.path("//").c_str(), 1);
    EXPECT_EQ(readBack(property), "a=1");
}

TEST_F(SystemProperties, FileThatCannotBeReadIsNotSet) {
    root_.setProperty("a", "1");
    std::filesystem::permissions(root_.path(""), std::filesystem::perms(0755));
    const auto setTo = [&](unsigned mode) {
        std::filesystem::permissions(root_.path("/dev/__properties__/a"),
                                     std::filesystem::perms(mode));
        // Root can read everything, so somebody else looks.
        const uid_t user = geteuid();
        EXPECT_TRUE(user != 0 || seteuid(65534) == 0);
        const bool set = __system_property_find("a") != nullptr;
        EXPECT_EQ(seteuid(user), 0);
        return set;
    };
    EXPECT_TRUE(setTo(0644));
    EXPECT_FALSE(setTo(0000));
    EXPECT_TRUE(setTo(0644));
}

TEST_F(SystemProperties, PropertyFoundTwiceIsTheSameObject) {
    root_.setProperty("same", "1");
    const prop_info* property = __system_property_find("same");
    for (int i = 0; i < 1000; i++) {
        root_.setProperty("other" + std::to_string(i), "1");
        ASSERT_NE(__system_property_find(("other" + std::to_string(i)).c_str()), nullptr);
        ASSERT_EQ(__system_property_find("same"), property);
    }
    EXPECT_EQ(readBack(property), "same=1");
}

TEST_F(SystemProperties, CallbackGetsALongValueWhole) {
    const std::string value(10000, 'v');
    root_.setProperty("long", value);
    EXPECT_EQ(readBack(__system_property_find("long")), "long=" + value);
}

TEST_F(SystemProperties, ValueEndsAtItsFirstNul) {
    root_.write("/dev/__properties__/nul", std::string("ab\0cd\n", 6));
    EXPECT_EQ(readBack(__system_property_find("nul")), "nul=ab");
}

TEST_F(SystemProperties, GetCopiesTheValueAndReturnsItsLength) {
    char value[PROP_VALUE_MAX];
    memset(value, 'x', sizeof(value));
    root_.setProperty("get", "abc");
    EXPECT_EQ(__system_property_get("get", value), 3);
    EXPECT_STREQ(value, "abc");
}

TEST_F(SystemProperties, GetOfAnUnsetPropertyGivesAnEmptyText) {
    char value[PROP_VALUE_MAX] = "before";
    EXPECT_EQ(__system_property_get("unset", value), 0);
    EXPECT_STREQ(value, "");
}

TEST_F(SystemProperties, GetCutsALongValueTo91Characters) {
    char value[PROP_VALUE_MAX];
    root_.setProperty("long", std::string(200, 'v'));
    EXPECT_EQ(__system_property_get("long", value), PROP_VALUE_MAX - 1);
    EXPECT_EQ(std::string(value), std::string(PROP_VALUE_MAX - 1, 'v'));
}

TEST_F(SystemProperties, ReadDuringAChangeSeesTheOldOrTheNewValue) {
    root_.setProperty("busy", std::string(80, 'a'));
    std::atomic<bool> done = false;
    std::vector<std::thread> readers(3);
    for (std::thread& reader : readers) {
        reader = std::thread([&done] {
            while (!done) {
                const prop_info* property = __system_property_find("busy");
                ASSERT_NE(property, nullptr);
                const std::string text = readBack(property);
                ASSERT_TRUE(text == "busy=" + std::string(80, 'a') ||
                            text == "busy=" + std::string(70, 'b'))
                    << text;
            }
        });
    }
    for (int i = 0; i < 500; i++) {
        root_.setProperty("busy", i % 2 == 0 ? std::string(70, 'b') : std::string(80, 'a'));
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

/** The names that __system_property_foreach gives. */
std::vector<std::string> allNames() {
    std::vector<std::string> names;
    EXPECT_EQ(__system_property_foreach(
                  [](const prop_info* property, void* cookie) {
                      static_cast<std::vector<std::string>*>(cookie)->push_back(readBack(property));
                  },
                  &names),
              0);
    return names;
}

TEST_F(SystemProperties, EachThatIsSetIsListedByName) {
    root_.write("/dev/__properties__/b", "2");
    root_.write("/dev/__properties__/a", "1");
    root_.write("/dev/__properties__/.new", "half wri");
    root_.write("/dev/__properties__/folder/c", "3");
    EXPECT_EQ(allNames(), (std::vector<std::string>{"a=1", "b=2"}));
}

TEST_F(SystemProperties, WithoutTheFolderNoneIsSet) { EXPECT_TRUE(allNames().empty()); }

}  // namespace
