// Which power step follows which, for every signal. The table is written down here once more, band
// by band, so that the code and the test have to agree on every threshold.

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "managers/TxPowerManager.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int kWeakest = -100;  // dBm
constexpr int kStrongest = 0;

/** Up to `lastRssi`, and from the band before on, `next` follows. */
struct Band {
    int lastRssi;
    unsigned next;
};

/** What follows on the step `current`, from kWeakest to kStrongest. */
struct Row {
    unsigned current;
    std::vector<Band> bands;
};
using Table = std::vector<Row>;

unsigned expectedStep(const Row& row, int rssi) {
    for (const Band& band : row.bands) {
        if (rssi <= band.lastRssi) {
            return band.next;
        }
    }
    ADD_FAILURE() << "no band for " << rssi;
    return 0;
}

const Table& defaultTable() {
    static const Table table = {
        {20, {{-65, 20}, {-55, 9}, {kStrongest, 5}}},
        {9, {{-71, 20}, {-55, 9}, {kStrongest, 5}}},
        {5, {{-71, 20}, {-61, 9}, {kStrongest, 5}}},
        {0, {{kStrongest, 20}}},  // before the first command
        {12, {{kStrongest, 20}}},
    };
    return table;
}

using Properties = std::vector<std::pair<std::string, std::string>>;

/** A table and the properties of "txpower." under which it holds. */
struct Case {
    const char* name;
    Properties properties;
    Table table;
};

const Case kCases[] = {
    {"TheDefaults", {}, defaultTable()},
    {"ConfiguredStepsAndThresholds",
     {{"dbm.upper", "40"},
      {"dbm.middle", "30"},
      {"dbm.lower", "11"},
      {"rssi.upper", "-30"},
      {"rssi.middle.upper", "-41"},
      {"rssi.middle.lower", "-50"},
      {"rssi.lower", "-62"}},
     {{40, {{-50, 40}, {-30, 30}, {kStrongest, 11}}},
      {30, {{-63, 40}, {-30, 30}, {kStrongest, 11}}},
      {11, {{-63, 40}, {-42, 30}, {kStrongest, 11}}},
      {20, {{kStrongest, 40}}}}},
    {"UpperAndMiddleEqualCountAsUpper",
     {{"dbm.middle", "20"}},
     {{20, {{-55, 20}, {kStrongest, 5}}},
      {5, {{-61, 20}, {kStrongest, 5}}},
      {9, {{kStrongest, 20}}}}},
    {"MiddleAndLowerEqualCountAsMiddle",
     {{"dbm.lower", "9"}},
     {{20, {{-65, 20}, {kStrongest, 9}}}, {9, {{-71, 20}, {kStrongest, 9}}}}},
    {"UpperAndLowerEqualCountAsUpper",
     {{"dbm.lower", "20"}},
     {{20, {{-65, 20}, {-55, 9}, {kStrongest, 20}}}, {9, {{-71, 20}, {-55, 9}, {kStrongest, 20}}}}},
    {"AllStepsEqualNeverChange",
     {{"dbm.upper", "12"}, {"dbm.middle", "12"}, {"dbm.lower", "12"}},
     {{12, {{kStrongest, 12}}}, {20, {{kStrongest, 12}}}}},
    {"ThresholdsUpsideDownAreTriedInTheSameOrder",
     {{"rssi.upper", "-70"},
      {"rssi.middle.upper", "-65"},
      {"rssi.middle.lower", "-60"},
      {"rssi.lower", "-55"}},
     {{20, {{-70, 20}, {kStrongest, 5}}},
      {9, {{-56, 20}, {kStrongest, 5}}},
      {5, {{-56, 20}, {kStrongest, 5}}},
      {0, {{kStrongest, 20}}}}},
    {"ThresholdsEqualLeaveNoHysteresis",
     {{"rssi.upper", "-60"},
      {"rssi.middle.upper", "-60"},
      {"rssi.middle.lower", "-60"},
      {"rssi.lower", "-60"}},
     {{20, {{-60, 20}, {kStrongest, 5}}},
      {9, {{-61, 20}, {-60, 9}, {kStrongest, 5}}},
      {5, {{-61, 20}, {kStrongest, 5}}}}},
};

class TxPowerDecision : public testing::TestWithParam<Case> {};

}  // namespace

TEST_P(TxPowerDecision, FollowsTheTableAtEverySignal) {
    const test::DeviceRoot root;
    for (const auto& [name, value] : GetParam().properties) {
        root.setProperty("persist.vendor.wifi.txpower." + name, value);
    }
    const TxPowerSettings settings{};
    for (const Row& row : GetParam().table) {
        for (int rssi = kWeakest; rssi <= kStrongest; ++rssi) {
            EXPECT_EQ(nextPowerStep(settings, row.current, rssi), expectedStep(row, rssi))
                << "from " << row.current << " at " << rssi << " dBm";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(TxPower, TxPowerDecision, testing::ValuesIn(kCases),
                         [](const auto& one) { return std::string(one.param.name); });

namespace {

/** The frequencies on both sides of every border, MHz, and whether the power is adapted there. */
constexpr std::pair<int, bool> kFrequencies[] = {{2412, false}, {2484, false}, {2999, false},
                                                 {3000, false}, {4999, false}, {5000, true},
                                                 {5180, true},  {5955, true}};

struct HandTracking {
    bool on;
    bool allowed;  ///< updateTxPowerConfig()

    bool adapts() const { return !on || allowed; }
};
constexpr HandTracking kHandTracking[] = {
    {false, true}, {false, false}, {true, true}, {true, false}};

/** What the supplicant was sent last, without the growing list of all commands. */
class LastCommand {
  public:
    explicit LastCommand(test::FakeControlSocket& socket) {
        socket.answerCommands([this](const std::string& command) {
            const std::lock_guard<std::mutex> lock(mutex_);
            command_ = command;
            return "OK\n";
        });
    }

    /** The command since the last call, or nothing. */
    std::string take() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(command_, "");
    }

  private:
    std::mutex mutex_;
    std::string command_;
};

std::string powerCommand(unsigned step) { return "DRIVER SET_TXPOWER " + std::to_string(step); }

class TxPowerDecisionSent : public LinkPowerScene {
  protected:
    TxPowerDecisionSent() {
        set("txpower.enable.sta", "true");
        manager_ = std::make_unique<TxPowerManager>(client_, settings_);
    }

    /** Brings the manager to a step by samples at 5 GHz, as somebody who walks would. */
    void goTo(unsigned step) {
        manager_->updateTxPowerConfig(true);
        sample(-100, 5180);  // 20, from anywhere
        if (step == 9) {
            sample(-60, 5180);
        } else if (step == 5) {
            sample(-40, 5180);
        }
    }

    void setHandTracking(bool on) const {
        set("txpower.enable.handtracking", on ? "true" : "false");
    }

    const TxPowerSettings settings_{};
    std::unique_ptr<TxPowerManager> manager_;
};

}  // namespace

TEST_F(TxPowerDecisionSent, EverySignalFrequencyStepAndHandTrackingStateGivesItsCommand) {
    LastCommand sent(sta_.socket());
    for (const HandTracking& handTracking : kHandTracking) {
        setHandTracking(handTracking.on);
        for (const Row& row : defaultTable()) {
            if (row.current != 20 && row.current != 9 && row.current != 5) {
                continue;  // no step that a command sets
            }
            bool changed = true;
            for (const auto& [freq, is5Ghz] : kFrequencies) {
                for (int rssi = kWeakest; rssi <= kStrongest; ++rssi) {
                    if (changed) {
                        goTo(row.current);
                        manager_->updateTxPowerConfig(handTracking.allowed);
                        sent.take();
                    }
                    sample(rssi, freq);
                    const bool adapted = is5Ghz && handTracking.adapts();
                    const unsigned next = adapted ? expectedStep(row, rssi) : 20;
                    changed = next != row.current;
                    EXPECT_EQ(sent.take(), changed ? powerCommand(next) : "")
                        << "from " << row.current << " at " << rssi << " dBm, " << freq
                        << " MHz, hand tracking " << handTracking.on << handTracking.allowed;
                }
            }
        }
        log_.clear();
    }
}

TEST_F(TxPowerDecisionSent, BeforeTheFirstCommandEverySampleAsksForTheUpperStep) {
    sta_.failAll(true);  // so that every command stays the first
    for (const HandTracking& handTracking : kHandTracking) {
        setHandTracking(handTracking.on);
        manager_->updateTxPowerConfig(handTracking.allowed);
        for (const auto& [freq, is5Ghz] : kFrequencies) {
            for (int rssi = kWeakest; rssi <= kStrongest; rssi += 5) {
                sample(rssi, freq);
                EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"))
                    << rssi << " dBm, " << freq << " MHz";
            }
        }
    }
}

}  // namespace Ursa::OS::Wifi
