#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "os/StateTree.h"

namespace Ursa::OS {
namespace {

using ::testing::MatchesRegex;

TEST(StateTree, PartsKeepTheirOrderInJsonAndText) {
    StateTree state = StateTree::parts();
    state.set("b", 2);
    state.set("a", true);
    StateTree& list = state.set("list", StateTree::list());
    list.add(-1);
    list.add("x");
    state.set("inner", StateTree::parts()).set("none", {});
    state.set("empty", StateTree::parts());
    state.set("unset", std::optional<std::string>());
    EXPECT_EQ(state.json(),
              R"({"b":2,"a":true,"list":[-1,"x"],"inner":{"none":null},"empty":{},"unset":null})");
    EXPECT_EQ(state.text(), "b: 2\na: yes\nlist: -1, x\ninner:\n  none: -\nempty: -\nunset: -\n");
}

TEST(StateTree, ListOfPartsHasALineForEachOne) {
    StateTree state = StateTree::parts();
    StateTree& list = state.set("list", StateTree::list());
    list.add(StateTree::parts()).set("a", 1);
    list.add(StateTree::parts()).asLine("as a\nline\n").set("a", 2);
    EXPECT_EQ(state.json(), R"({"list":[{"a":1},{"a":2}]})");
    EXPECT_EQ(state.text(), "list:\n  -\n    a: 1\n  - as a / line\n");
}

TEST(StateTree, ListThatIsMadeWhileItIsWrittenReadsAsOneThatWasMadeBefore) {
    const auto square = [](size_t i) {
        StateTree entry = StateTree::parts();
        entry.set("square", i * i);
        return entry;
    };
    const auto inParts = [](StateTree list) {
        StateTree state = StateTree::parts();
        state.set("squares", std::move(list));
        return state;
    };
    for (const size_t count : {size_t{0}, size_t{1}, size_t{3}}) {
        StateTree made = StateTree::list();
        for (size_t i = 0; i < count; ++i) {
            made.add(square(i));
        }
        const StateTree before = inParts(std::move(made));
        const StateTree later = inParts(StateTree::list(count, square));
        EXPECT_EQ(later.json(), before.json());
        EXPECT_EQ(later.text(), before.text());
    }
}

TEST(StateTree, ListThatIsMadeWhileItIsWrittenHasOneElementAtATime) {
    int alive = 0;
    int most = 0;
    const auto element = [&](size_t /*i*/) {
        // A tree's elements are made later still, by a function that lives as long as the tree.
        const std::shared_ptr<int> counter(new int(most = std::max(most, ++alive)),
                                           [&](int* number) {
                                               delete number;
                                               --alive;
                                           });
        return StateTree::list(1, [counter](size_t /*i*/) { return StateTree(1); });
    };
    EXPECT_EQ(StateTree::list(3, element).json(), "[[1],[1],[1]]");
    EXPECT_EQ(most, 1);
    EXPECT_EQ(alive, 0);
}

TEST(StateTree, JsonEscapesWhatATextFromOutsideHolds) {
    EXPECT_EQ(StateTree("a\"b\\c\nd\te\x01\x7F").json(), R"("a\"b\\c\nd\te\u0001\u007f")");
    EXPECT_EQ(StateTree(std::string("a\0b", 3)).json(), R"("a\u0000b")");
    EXPECT_EQ(StateTree("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80").json(),
              "\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\"");
}

TEST(StateTree, BytesThatAreNotUtf8AreReplacedOneByOne) {
    const std::string kReplaced = "\xEF\xBF\xBD";
    const struct {
        std::string bytes;
        int replaced;
    } cases[] = {
        {"\x80", 1},
        {"\xC3", 1},
        {"\xC0\x80", 2},
        {"\xE0\x80\x80", 3},
        {"\xED\xA0\x80", 3},
        {"\xF0\x80\x80\x80", 4},
        {"\xF4\x90\x80\x80", 4},
        {"\xFF\xFE", 2},
        {"\xE2\x82", 2},
        {"\xF5\x80\x80\x80", 4},
    };
    for (const auto& test : cases) {
        std::string expected = "\"x";
        for (int i = 0; i < test.replaced; ++i) {
            expected += kReplaced;
        }
        EXPECT_EQ(StateTree("x" + test.bytes + "y").json(), expected + "y\"") << test.replaced;
    }
}

TEST(StateTree, MomentIsAnAgeByBothClocks) {
    EXPECT_TRUE(StateTree(Moment{}).isNothing());
    EXPECT_EQ(StateTree(Moment{}).json(), "null");
    const Moment now = Moment::now();
    const Moment before = {now.monotonicNs - 4'200'000'000, 45'296'789};
    const std::string json = StateTree(before).json();
    EXPECT_THAT(json, MatchesRegex("\\{\"agoMs\":42[0-9][0-9],\"monotonicMs\":[0-9]+,"
                                   "\"wallMs\":45296789\\}"));
    EXPECT_EQ(momentText(before, now), "4.2 s ago (12:34:56.789)");
    EXPECT_EQ(momentText({}, now), "never");
}

TEST(StateTree, DurationIsShownInAFittingUnit) {
    EXPECT_EQ(durationText(350'000), "0.3 ms");
    EXPECT_EQ(durationText(999'000'000), "999.0 ms");
    EXPECT_EQ(durationText(1'500'000'000), "1.5 s");
    EXPECT_EQ(durationText(INT64_C(600'000'000'000)), "10 min");
    EXPECT_EQ(durationText(INT64_C(9'000'000'000'000)), "2.5 h");
}

TEST(StateTree, TextFormHasNoControlCharacters) {
    StateTree state = StateTree::parts();
    state.set("reply", "RSSI=-45\nFREQUENCY=5180\n\x1B[31m\r");
    EXPECT_EQ(state.text(), "reply: RSSI=-45 / FREQUENCY=5180 /  [31m \n");
}

}  // namespace
}  // namespace Ursa::OS
