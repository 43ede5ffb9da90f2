#include <csignal>
#include <string>
#include <vector>

#include <corvid/test/1.0/types.h>
#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

using android::DEAD_OBJECT;
using android::sp;
using android::hardware::hidl_enum_range;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using corvid::test::V1_0::Choice;
using corvid::test::V1_0::Colour;

TEST(HidlString, StringWithANulInsideKeepsAllBytes) {
    const hidl_string text(std::string("a\0b", 3));
    EXPECT_EQ(3u, text.size());
    EXPECT_EQ(std::string("a\0b", 3), std::string(text));
    EXPECT_EQ('\0', text.c_str()[3]);
}

TEST(HidlString, EmptyStringIsNotANullPointer) {
    EXPECT_STREQ("", hidl_string().c_str());
    EXPECT_STREQ("", hidl_string(static_cast<const char*>(nullptr)).c_str());
    hidl_string moved("text");
    const hidl_string other(std::move(moved));
    EXPECT_STREQ("", moved.c_str());  // NOLINT(bugprone-use-after-move): what is tested
    EXPECT_EQ("text", other);
}

TEST(HidlString, StringAssignedAPartOfItselfIsThatPart) {
    hidl_string text("0123456789");
    text = text.c_str() + 5;
    EXPECT_EQ("56789", text);
}

TEST(HidlString, CopiesWhatItOnlyRefersTo) {
    std::string bytes = "bytes";
    hidl_string reference;
    reference.setToExternal(bytes.c_str(), bytes.size());
    const hidl_string copy(reference);
    bytes[0] = 'B';
    EXPECT_EQ("Bytes", reference);
    EXPECT_EQ("bytes", copy);
}

TEST(HidlVec, CopyMoveAndResizeKeepTheElements) {
    hidl_vec<hidl_string> names = {"one", "two"};
    hidl_vec<hidl_string> copy = names;
    EXPECT_EQ(names, copy);
    copy.resize(3);
    EXPECT_EQ("two", copy[1]);
    EXPECT_EQ("", copy[2]);
    copy.resize(1);
    EXPECT_EQ((hidl_vec<hidl_string>{"one"}), copy);
    const hidl_vec<hidl_string> moved = std::move(names);
    EXPECT_EQ(0u, names.size());  // NOLINT(bugprone-use-after-move): what is tested
    EXPECT_EQ((std::vector<hidl_string>(moved)), (std::vector<hidl_string>{"one", "two"}));
}

TEST(HidlVec, CopiesWhatItOnlyRefersTo) {
    int numbers[] = {1, 2};
    hidl_vec<int> reference;
    reference.setToExternal(numbers, 2);
    const hidl_vec<int> copy = reference;
    numbers[0] = 9;
    EXPECT_EQ(9, reference[0]);
    EXPECT_EQ(1, copy[0]);
}

TEST(HidlEnum, RangeHasTheValuesInOrder) {
    std::vector<Colour> colours;
    for (const Colour colour : hidl_enum_range<Colour>()) {
        colours.push_back(colour);
    }
    EXPECT_EQ((std::vector<Colour>{Colour::RED, Colour::GREEN, Colour::BLUE}), colours);
}

TEST(HidlSafeUnion, UnionTakesAValueOfAnotherKind) {
    Choice choice;
    choice.text("text");
    EXPECT_EQ("text", choice.text());
    choice.number(3);
    EXPECT_EQ(Choice::hidl_discriminator::number, choice.getDiscriminator());
    EXPECT_EQ("{.number = 3}", toString(choice));
}

TEST(HidlReturn, ValueOfASuccessfulCallIsReturned) {
    const Return<int32_t> result(5);
    EXPECT_TRUE(result.isOk());
    EXPECT_EQ(5, static_cast<int32_t>(result));
}

TEST(HidlReturn, FailedCallSaysWhy) {
    const Return<int32_t> result(Status::fromStatusT(DEAD_OBJECT));
    EXPECT_FALSE(result.isOk());
    EXPECT_TRUE(result.isDeadObject());
    EXPECT_EQ("Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '", result.description());
    EXPECT_EQ(7, result.withDefault(7));
}

TEST(HidlReturnDeathTest, UncheckedFailureAborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT({ const Return<void> result(Status::fromStatusT(DEAD_OBJECT)); },
                testing::KilledBySignal(SIGABRT), "not checked: .*DEAD_OBJECT");
}

TEST(HidlReturnDeathTest, ValueOfAFailedCallAborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            const Return<int32_t> result(Status::fromStatusT(DEAD_OBJECT));
            static_cast<void>(static_cast<int32_t>(result));
        },
        testing::KilledBySignal(SIGABRT), "value of a failed HIDL call");
}
