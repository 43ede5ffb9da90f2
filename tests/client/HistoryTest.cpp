#include <atomic>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/History.h"
#include "client/NetlinkStats.h"
#include "client/PendingText.h"
#include "client/SlowTasks.h"
#include "client/Task.h"
#include "os/Moment.h"
#include "tests/support/LogCapture.h"

namespace Ursa::OS::Wifi {

/** Gives SlowTasks the time. */
class SlowTasksTestPeer {
  public:
    static void note(SlowTasks& tasks, SlowTasks::Kind kind, const std::string& name,
                     int64_t durationNs, int64_t nowNs) {
        tasks.noteSlow_(kind, name, durationNs, Moment{nowNs, 0});
    }
};

namespace {

using ::testing::ElementsAre;

constexpr NetInterfaceType kSta = NetInterfaceType::STA;
constexpr int64_t kSecond = 1'000'000'000;

void addCommand(History& history, const std::string& text, const std::string& reply = "OK\n",
                CommandOutcome outcome = CommandOutcome::Answered, int64_t startNs = kSecond) {
    history.addCommand(HistoryKind::Command, kSta, text, outcome, reply, startNs,
                       startNs + 350'000);
}

std::vector<std::string> textsOf(const History& history) {
    std::vector<std::string> texts;
    for (const HistoryEntry& entry : history.copy().entries) {
        texts.emplace_back(entry.text());
    }
    return texts;
}

TEST(History, EntriesAreToldOldestFirst) {
    History history;
    history.addState(kSta, "socket Connected");
    history.addEvent(kSta, "CONNECTED", "- Connection to 02:00:00:00:01:00", Moment{kSecond, 0});
    addCommand(history, "DRIVER SET_TXPOWER 9");
    const History::Copy copy = history.copy();
    EXPECT_EQ(copy.total, 3U);
    ASSERT_EQ(copy.entries.size(), 3U);
    EXPECT_EQ(copy.entries[0].kind, HistoryKind::State);
    EXPECT_EQ(copy.entries[1].reply(), "- Connection to 02:00:00:00:01:00");
    EXPECT_EQ(copy.entries[2].reply(), "OK");
    EXPECT_EQ(copy.entries[2].durationUs, 350U);
    EXPECT_EQ(copy.entries[2].thread, currentThread());
}

TEST(History, OldestEntryMakesRoomForAnother) {
    History history;
    for (size_t i = 0; i < History::kCapacity + 5; ++i) {
        history.addState(kSta, std::to_string(i));
    }
    const std::vector<std::string> texts = textsOf(history);
    ASSERT_EQ(texts.size(), History::kCapacity);
    EXPECT_EQ(texts.front(), "5");
    EXPECT_EQ(texts.back(), std::to_string(History::kCapacity + 4));
    EXPECT_EQ(history.copy().total, History::kCapacity + 5);
}

TEST(History, EqualCommandsInARowShareAnEntryWithTheLastReply) {
    History history;
    addCommand(history, "SIGNAL_POLL", "RSSI=-45\n", CommandOutcome::Answered, kSecond);
    addCommand(history, "SIGNAL_POLL", "RSSI=-47\n", CommandOutcome::Answered, 6 * kSecond);
    addCommand(history, "SIGNAL_POLL", "RSSI=-49\n", CommandOutcome::Answered, 11 * kSecond);
    ASSERT_EQ(history.copy().entries.size(), 1U);
    const HistoryEntry entry = history.copy().entries[0];
    EXPECT_EQ(entry.repeats, 3);
    EXPECT_EQ(entry.sinceFirstMs, 10'000U);
    EXPECT_EQ(entry.reply(), "RSSI=-49");
    EXPECT_EQ(entry.at.monotonicNs, 11 * kSecond);
}

TEST(History, CommandsTimesAreThoseAtWhichItWasSent) {
    History history;
    const Moment end = Moment::now();
    const int64_t startNs = end.monotonicNs - 3 * kSecond;
    history.addCommand(HistoryKind::Command, kSta, "SIGNAL_POLL", CommandOutcome::TimedOut, "",
                       startNs, end.monotonicNs);
    const Moment at = history.copy().entries[0].at;
    EXPECT_EQ(at.monotonicNs, startNs);
    EXPECT_GE(at.wallMs, end.wallMs - 3000);
    EXPECT_LT(at.wallMs, end.wallMs - 3000 + 2000) << "the clock may have gone on meanwhile";
}

TEST(History, CommandsThatDifferHaveEntriesOfTheirOwn) {
    History history;
    addCommand(history, "SIGNAL_POLL");
    addCommand(history, "DRIVER SET_TXPOWER 9");
    addCommand(history, "SIGNAL_POLL");
    addCommand(history, "SIGNAL_POLL", "ERROR: TIMEOUT", CommandOutcome::TimedOut);
    history.addCommand(HistoryKind::Command, NetInterfaceType::P2P, "SIGNAL_POLL",
                       CommandOutcome::TimedOut, "", kSecond, kSecond);
    {
        const TaskScope scope(Task::named("HistoryTest.other", Task::Kind::Other));
        history.addCommand(HistoryKind::Command, NetInterfaceType::P2P, "SIGNAL_POLL",
                           CommandOutcome::TimedOut, "", kSecond, kSecond);
    }
    EXPECT_EQ(history.copy().entries.size(), 6U);
}

TEST(History, TextThatIsTooLongIsCut) {
    History history;
    addCommand(history, std::string(60, 'c'), std::string(60, 'r'));
    addCommand(history, std::string(5000, 'd'), "reply");
    const History::Copy copy = history.copy();
    EXPECT_EQ(copy.entries[0].text(), std::string(60, 'c'));
    EXPECT_EQ(copy.entries[0].reply(), std::string(HistoryEntry::kTextSize - 60, 'r'));
    EXPECT_EQ(copy.entries[1].text(), std::string(HistoryEntry::kTextSize, 'd'));
    EXPECT_EQ(copy.entries[1].reply(), "");
}

TEST(History, SecretsOfAGroupAreNotKept) {
    History history;
    history.addEvent(NetInterfaceType::P2P, "GROUP-STARTED",
                     "p2p0 GO ssid=\"DIRECT\" freq=2437 passphrase=\"secret\"", Moment{kSecond, 0});
    history.addEvent(NetInterfaceType::P2P, "GROUP-STARTED",
                     "p2p0 client ssid=\"x\" freq=5180 psk=0123 passphrase=\"y\"",
                     Moment{kSecond, 0});
    EXPECT_EQ(history.copy().entries[0].reply(), "p2p0 GO ssid=\"DIRECT\" freq=2437");
    EXPECT_EQ(history.copy().entries[1].reply(), "p2p0 client ssid=\"x\" freq=5180");
}

TEST(History, LastCommandOfAManagerOutlivesTheBuffer) {
    History history;
    {
        const TaskScope scope(Task::named("APowerManager.onStaConnected", Task::Kind::Subscriber));
        addCommand(history, "DRIVER SET_TXPOWER 9");
    }
    addCommand(history, "nobody's");
    for (size_t i = 0; i < 2 * History::kCapacity; ++i) {
        history.addState(kSta, "socket Idle");
    }
    ASSERT_TRUE(history.lastCommandOf("APowerManager"));
    EXPECT_EQ(history.lastCommandOf("APowerManager")->text(), "DRIVER SET_TXPOWER 9");
    EXPECT_EQ(history.lastCommandOf("APowerManager")->task->name(), "APowerManager.onStaConnected");
    EXPECT_FALSE(history.lastCommandOf("AnotherManager"));
}

TEST(History, ReadersAndWritersOfSeveralThreadsMeetWholeEntries) {
    History history;
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b', 'c'}) {
        writers.emplace_back([&, letter] {
            for (size_t length = 1; !stop; length = length % 40 + 1) {
                addCommand(history, std::string(length, letter), std::string(length, letter));
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        for (const HistoryEntry& entry : history.copy().entries) {
            ASSERT_EQ(entry.text(), std::string(entry.textLength, entry.texts[0]));
            ASSERT_EQ(entry.text().substr(0, entry.replyLength), entry.reply());
        }
    }
    stop = true;
    for (std::thread& writer : writers) {
        writer.join();
    }
}

TEST(PendingText, IsThereFromSetToClearAndNeverTorn) {
    PendingText pending;
    EXPECT_FALSE(pending.get());
    pending.set("DRIVER SET_TXPOWER 9", 7);
    ASSERT_TRUE(pending.get());
    EXPECT_EQ(pending.get()->text, "DRIVER SET_TXPOWER 9");
    EXPECT_EQ(pending.get()->sinceNs, 7);
    pending.set(std::string(1000, 'x'), 8);
    EXPECT_EQ(pending.get()->text, std::string(PendingText::kSize, 'x'));
    pending.clear();
    EXPECT_FALSE(pending.get());

    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; !stop; ++i) {
            pending.set(
                std::string(static_cast<size_t>(i % 60 + 1), static_cast<char>('a' + i % 26)),
                i % 26 + 1);
        }
    });
    for (int i = 0; i < 100'000; ++i) {
        if (const auto value = pending.get()) {
            const auto letter = static_cast<char>('a' + value->sinceNs - 1);
            ASSERT_EQ(value->text, std::string(value->text.size(), letter));
        }
    }
    stop = true;
    writer.join();
}

TEST(PendingText, ScopeThatAnExceptionLeavesClearsIt) {
    PendingText pending;
    try {
        const PendingText::Scope scope(pending, "SIGNAL_POLL", 7);
        EXPECT_TRUE(pending.get());
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
    }
    EXPECT_FALSE(pending.get());
}

TEST(NetlinkStats, RequestThatAnExceptionEndsHasFailedAndIsNoLongerPending) {
    NetlinkStats stats;
    NetlinkStats::Result result;
    try {
        const NetlinkStats::Pending pending(stats, "interfaces", result);
        EXPECT_FALSE(stats.describePending().isNothing());
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
    }
    EXPECT_TRUE(stats.describePending().isNothing());
    EXPECT_THAT(stats.describe().text(), testing::HasSubstr("-5 Input/output error: 1, the last "));
}

TEST(Task, InnerScopeCountsUntilItEnds) {
    const Task& outer = Task::named("OuterManager.onEvent", Task::Kind::Subscriber);
    const Task& inner = Task::named("InnerManager.onResult", Task::Kind::Other);
    EXPECT_EQ(&outer, &Task::named("OuterManager.onEvent", Task::Kind::Subscriber));
    EXPECT_EQ(inner.ownerName(), "InnerManager");
    EXPECT_EQ(TaskScope::current(), nullptr);
    {
        const TaskScope first(outer);
        {
            const TaskScope second(inner);
            EXPECT_EQ(TaskScope::current(), &inner);
            std::vector<RunningTask> running;
            std::thread([&] { running = runningTasks(); }).join();
            ASSERT_EQ(running.size(), 1U);
            EXPECT_EQ(running[0].task, &inner);
            EXPECT_EQ(running[0].thread, currentThread());
            EXPECT_LE(running[0].sinceNs, Moment::monotonicNow());
        }
        EXPECT_EQ(TaskScope::current(), &outer);
    }
    EXPECT_EQ(TaskScope::current(), nullptr);
    EXPECT_TRUE(runningTasks().empty());
}

TEST(Task, MoreThreadsThanThereIsRoomForStillKnowTheirOwn) {
    const Task& task = Task::named("CrowdManager.onEvent", Task::Kind::Other);
    std::vector<std::thread> threads;
    for (int i = 0; i < 40; ++i) {
        threads.emplace_back([&] {
            const TaskScope scope(task);
            EXPECT_EQ(TaskScope::current(), &task);
            std::this_thread::yield();
            EXPECT_LE(runningTasks().size(), 16U);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(runningTasks().empty());
}

TEST(SlowTasks, WarnOncePerMinuteAndKindButCountEach) {
    test::LogCapture log;
    SlowTasks tasks;
    const auto note = [&](SlowTasks::Kind kind, const std::string& name, int64_t ms, int64_t s) {
        SlowTasksTestPeer::note(tasks, kind, name, ms * 1'000'000, s * kSecond);
    };
    tasks.note(SlowTasks::Kind::Subscriber, "A.onEvent", kSecond);  // not more than the limit
    note(SlowTasks::Kind::Subscriber, "A.onEvent", 1500, 100);
    note(SlowTasks::Kind::Subscriber, "B.onEvent", 2500, 101);
    note(SlowTasks::Kind::Callback, "onAssocStarted of process 7", 3000, 102);
    note(SlowTasks::Kind::Subscriber, "A.onEvent", 1200, 159);
    note(SlowTasks::Kind::Subscriber, "A.onEvent", 1300, 160);
    EXPECT_THAT(log.messages(ANDROID_LOG_WARN),
                ElementsAre("SlowTasks: subscriber A.onEvent took 1500 ms",
                            "SlowTasks: client callback onAssocStarted of process 7 took 3000 ms",
                            "SlowTasks: subscriber A.onEvent took 1300 ms"));
    const std::vector<SlowTasks::Entry> entries = tasks.entries();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].name(), "A.onEvent");
    EXPECT_EQ(entries[0].count, 3U);
    EXPECT_EQ(entries[0].longestNs, 1'500'000'000);
    EXPECT_EQ(entries[0].last.monotonicNs, 160 * kSecond);
}

TEST(SlowTasks, LastNamesAreKeptUpToALimit) {
    test::LogCapture log;
    SlowTasks tasks;
    for (int i = 0; i < 1000; ++i) {
        SlowTasksTestPeer::note(tasks, SlowTasks::Kind::Callback, std::to_string(i), 2 * kSecond,
                                (i + 1) * kSecond);
    }
    const std::vector<SlowTasks::Entry> entries = tasks.entries();
    ASSERT_EQ(entries.size(), SlowTasks::kMaxNames);
    EXPECT_EQ(entries.front().name(), "968");
    EXPECT_EQ(entries.back().name(), "999");
}

TEST(SlowTasks, NameThatIsTooLongIsCut) {
    test::LogCapture log;
    SlowTasks tasks;
    const std::string name(100, 'x');
    for (int i = 0; i < 2; ++i) {
        tasks.note(SlowTasks::Kind::Subscriber, name, 2 * kSecond);
    }
    const std::vector<SlowTasks::Entry> entries = tasks.entries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name(), name.substr(0, SlowTasks::Entry::kNameSize));
    EXPECT_EQ(entries[0].count, 2U);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
