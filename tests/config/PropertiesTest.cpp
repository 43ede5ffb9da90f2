#include <cerrno>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/CorvidWifiProperties.h"
#include "tests/support/DeviceRoot.h"

namespace {

namespace props = android::sysprop::CorvidWifiProperties;
using namespace Ursa::OS::Wifi::Sysprop;
using Ursa::OS::Wifi::PropertyEffect;
using Ursa::OS::Wifi::PropertyState;
using Ursa::OS::Wifi::PropertyType;

// Values as texts, so that one table holds properties of all types.

std::string toText(bool value) { return value ? "true" : "false"; }
std::string toText(int value) { return std::to_string(value); }
std::string toText(unsigned value) { return std::to_string(value) + "u"; }

struct Property {
    std::string name;  ///< behind "persist.vendor.wifi."
    std::string type;
    std::function<std::optional<std::string>()> read;
    std::function<std::string()> readOrDefault;
    std::string defaultText;
};

template <typename T>
constexpr const char* kTypeName = nullptr;
template <>
constexpr const char* kTypeName<bool> = "bool";
template <>
constexpr const char* kTypeName<int> = "int";
template <>
constexpr const char* kTypeName<unsigned> = "unsigned";

template <typename T, typename Default>
Property property(const char* name, std::optional<T> (*accessor)(), T (*wrapper)(Default),
                  Default defaultValue) {
    return {name, kTypeName<T>,
            [accessor] {
                const std::optional<T> value = accessor();
                return value ? std::optional(toText(*value)) : std::nullopt;
            },
            [wrapper, defaultValue] { return toText(wrapper(defaultValue)); },
            toText(static_cast<T>(defaultValue))};
}

#define PROPERTY(name, accessor, defaultValue) \
    property(name, props::accessor, corvid_wifi_##accessor, defaultValue)

/** Every property of the list, with the daemon's default in the type of the wrapper's argument. */
const std::vector<Property> kProperties = {
    PROPERTY("cmd.cs.p2p.ecsa", cmd_cs_p2p_ecsa, false),
    PROPERTY("cmd.cs.p2p.corvid", cmd_cs_p2p_corvid, false),
    PROPERTY("cmd.elna.bypass.mode", cmd_elna_bypass_mode, false),
    PROPERTY("cmd.noa.p2p", cmd_noa_p2p, false),
    PROPERTY("cmd.mcc.quota", cmd_mcc_quota, false),
    PROPERTY("cmd.mcc.p2p.increase.bw", cmd_mcc_p2p_increase_bw, false),
    PROPERTY("devparams.enable", devparams_enable, false),
    PROPERTY("devparams.default_config", devparams_default_config, false),
    PROPERTY("devparams.ppdu_dur_offset_us", devparams_ppdu_dur_offset_us, 0),
    PROPERTY("devparams.ppdu_dur_us", devparams_ppdu_dur_us, 5484),
    PROPERTY("devparams.rts_enable", devparams_rts_enable, 1),
    PROPERTY("devparams.sifs_burst_dur_us", devparams_sifs_burst_dur_us, 13000),
    PROPERTY("devparams.tx_ampdu_limit", devparams_tx_ampdu_limit, 64),
    PROPERTY("devparams.tx_amsdu_limit", devparams_tx_amsdu_limit, 4),
    PROPERTY("devparams.tx_retry_limit", devparams_tx_retry_limit, 7),
    PROPERTY("devparams.ul_mu_config", devparams_ul_mu_config, 0),
    PROPERTY("frequency.block.enable", frequency_block_enable, false),
    PROPERTY("mipiclock.enable", mipiclock_enable, false),
    PROPERTY("scs.enable", scs_enable, false),
    PROPERTY("txchain.enable.p2p", txchain_enable_p2p, false),
    PROPERTY("txchain.qualcomm", txchain_qualcomm, false),
    PROPERTY("txpower.dbm.lower", txpower_dbm_lower, 5U),
    PROPERTY("txpower.dbm.middle", txpower_dbm_middle, 9U),
    PROPERTY("txpower.dbm.upper", txpower_dbm_upper, 20U),
    PROPERTY("txpower.dbm.p2p", txpower_dbm_p2p, 12U),
    PROPERTY("txpower.enable.sta", txpower_enable_sta, false),
    PROPERTY("txpower.enable.p2p", txpower_enable_p2p, false),
    PROPERTY("txpower.enable.sta.per_chain", txpower_enable_sta_per_chain, false),
    PROPERTY("txpower.enable.handtracking", txpower_enable_handtracking, false),
    PROPERTY("txpower.rssi.lower", txpower_rssi_lower, -70),
    PROPERTY("txpower.rssi.middle.lower", txpower_rssi_middle_lower, -65),
    PROPERTY("txpower.rssi.middle.upper", txpower_rssi_middle_upper, -60),
    PROPERTY("txpower.rssi.upper", txpower_rssi_upper, -55),
    PROPERTY("txpower.unit.half.dbm", txpower_unit_half_dbm, false),
    PROPERTY("txpower.perchain.low_rssi_lower", txpower_perchain_low_rssi_lower, -85),
    PROPERTY("txpower.perchain.low_rssi_upper", txpower_perchain_low_rssi_upper, -75),
    PROPERTY("txpower.perchain.limit_default_dbm0", txpower_perchain_limit_default_dbm0, 20U),
    PROPERTY("txpower.perchain.limit_default_dbm1", txpower_perchain_limit_default_dbm1, 20U),
    PROPERTY("txpower.perchain.limit_low_dbm0", txpower_perchain_limit_low_dbm0, 13U),
    PROPERTY("txpower.perchain.limit_low_dbm1", txpower_perchain_limit_low_dbm1, 20U),
    PROPERTY("telemetry.enable", telemetry_enable, false),
    PROPERTY("powerjump.detect.enable", power_jump_detect_enable, false),
    PROPERTY("powerjump.detect.rssi.threshold", power_jump_detect_rssi_threshold, -55),
    PROPERTY("im3.mitigation.band2g", im3_mitigation_band2g, false),
};

std::string wholeName(const Property& entry) { return "persist.vendor.wifi." + entry.name; }

class Properties : public testing::Test {
  protected:
    void set(const Property& entry, const std::string& value) const {
        root_.setProperty(wholeName(entry), value);
    }

    // What a property of each type reads as when this is its text.
    std::optional<bool> boolOf(const std::string& text) const {
        root_.setProperty("persist.vendor.wifi.scs.enable", text);
        return props::scs_enable();
    }
    std::optional<int> intOf(const std::string& text) const {
        root_.setProperty("persist.vendor.wifi.txpower.rssi.upper", text);
        return props::txpower_rssi_upper();
    }
    std::optional<unsigned> unsignedOf(const std::string& text) const {
        root_.setProperty("persist.vendor.wifi.txpower.dbm.upper", text);
        return props::txpower_dbm_upper();
    }

    test::DeviceRoot root_;
};

TEST_F(Properties, EveryPropertyOfTheListHasARow) {
    std::set<std::string> rows;
    for (const Property& entry : kProperties) {
        rows.insert(entry.name);
    }
#define EXPECT_ROW(type, accessor, name, ...) EXPECT_EQ(rows.count(name), 1U) << name;
    CORVID_WIFI_PROPERTIES(EXPECT_ROW, EXPECT_ROW)
#undef EXPECT_ROW
}

TEST_F(Properties, EachDefaultIsInItsRange) {
    for (const PropertyState& state : readStates()) {
        EXPECT_GE(state.fallback, state.range.lowest) << state.name;
        EXPECT_LE(state.fallback, state.range.highest) << state.name;
    }
}

TEST_F(Properties, PropertyThatIsNotSetGivesTheCallersDefault) {
    for (const Property& entry : kProperties) {
        SCOPED_TRACE(entry.name);
        EXPECT_EQ(entry.read(), std::nullopt);
        EXPECT_EQ(entry.readOrDefault(), entry.defaultText);
    }
}

TEST_F(Properties, EachPropertyIsReadFromItsOwnName) {
    for (const Property& entry : kProperties) {
        SCOPED_TRACE(entry.name);
        // 1 is true to a bool. None of the others notices.
        const std::string expected = entry.type == "bool"  ? "true"
                                     : entry.type == "int" ? "1"
                                                           : "1u";
        set(entry, "1");
        EXPECT_EQ(entry.read(), expected);
        EXPECT_EQ(entry.readOrDefault(), expected);
        for (const Property& other : kProperties) {
            if (other.name != entry.name) {
                EXPECT_EQ(other.read(), std::nullopt) << other.name;
            }
        }
        root_.unsetProperty(wholeName(entry));
        EXPECT_EQ(entry.read(), std::nullopt);
    }
}

TEST_F(Properties, PropertyThatDoesNotParseGivesTheCallersDefault) {
    for (const Property& entry : kProperties) {
        SCOPED_TRACE(entry.name);
        for (const char* text : {"", "on", "12abc"}) {
            set(entry, text);
            EXPECT_EQ(entry.read(), std::nullopt) << text;
            EXPECT_EQ(entry.readOrDefault(), entry.defaultText) << text;
        }
    }
}

TEST_F(Properties, DefaultIsTheCallersOwn) {
    EXPECT_TRUE(corvid_wifi_scs_enable(true));
    EXPECT_FALSE(corvid_wifi_scs_enable(false));
    EXPECT_EQ(corvid_wifi_txpower_rssi_upper(-1), -1);
    EXPECT_EQ(corvid_wifi_txpower_dbm_upper(77), 77U);
    EXPECT_EQ(corvid_wifi_devparams_default_config(false), 0);
    EXPECT_EQ(corvid_wifi_devparams_default_config(true), 1);
}

TEST_F(Properties, FlagThatIsAnIntegerIsReadAsOne) {
    root_.setProperty("persist.vendor.wifi.devparams.default_config", "2");
    EXPECT_EQ(corvid_wifi_devparams_default_config(false), 2);
    root_.setProperty("persist.vendor.wifi.devparams.default_config", "true");
    EXPECT_EQ(corvid_wifi_devparams_default_config(false), 0) << "not a bool";
}

TEST_F(Properties, ChangeIsSeenByTheNextRead) {
    EXPECT_EQ(intOf("1"), 1);
    EXPECT_EQ(intOf("2"), 2);
    root_.unsetProperty("persist.vendor.wifi.txpower.rssi.upper");
    EXPECT_EQ(props::txpower_rssi_upper(), std::nullopt);
}

// States

/** The state of a property of which only the end of the name is given. */
PropertyState stateOf(const std::string& name) {
    for (const PropertyState& state : readStates()) {
        if (state.name == "persist.vendor.wifi." + name) {
            return state;
        }
    }
    ADD_FAILURE() << "no state of " << name;
    return {};
}

TEST_F(Properties, StatesAreThoseOfTheListInItsOrderWithTheDefaultsOfTheCode) {
    const std::vector<PropertyState> states = readStates();
    ASSERT_EQ(states.size(), std::size(kProperties));
    for (size_t i = 0; i < states.size(); ++i) {
        const Property& entry = kProperties[i];
        SCOPED_TRACE(entry.name);
        EXPECT_EQ(states[i].name, wholeName(entry));
        const std::string fallback =
            entry.type == "bool"
                ? toText(states[i].fallback != 0)
                : std::to_string(states[i].fallback) + (entry.type == "unsigned" ? "u" : "");
        EXPECT_EQ(fallback, entry.defaultText);
        EXPECT_STRNE(states[i].meaning, "");
        EXPECT_EQ(states[i].set, std::nullopt);
    }
}

TEST_F(Properties, StateTellsWhatIsSetAndWhetherItParses) {
    PropertyState state = stateOf("txpower.rssi.upper");
    EXPECT_EQ(state.set, std::nullopt);
    EXPECT_FALSE(state.isMalformed());
    EXPECT_EQ(state.value(), -55);
    EXPECT_EQ(intOf("-50"), -50);
    state = stateOf("txpower.rssi.upper");
    EXPECT_EQ(state.type, PropertyType::Int);
    EXPECT_EQ(state.set, "-50");
    EXPECT_FALSE(state.isMalformed());
    EXPECT_EQ(state.value(), -50);
    EXPECT_EQ(intOf("-50dBm"), std::nullopt);
    state = stateOf("txpower.rssi.upper");
    EXPECT_EQ(state.set, "-50dBm");
    EXPECT_TRUE(state.isMalformed());
    EXPECT_EQ(state.value(), -55);
}

TEST_F(Properties, StateOfOneThatIsReadOnceTellsWhatWasRead) {
    EXPECT_EQ(stateOf("txpower.dbm.p2p").effect, PropertyEffect::FirstUse);
    EXPECT_EQ(unsignedOf("4294967295"), 4294967295U);
    corvid_wifi_txpower_dbm_upper(20);
    EXPECT_EQ(unsignedOf("7"), 7U);
    EXPECT_EQ(stateOf("txpower.dbm.upper").value(), 7);
    EXPECT_EQ(stateOf("txpower.dbm.upper").inForce, 4294967295);
    corvid_wifi_txpower_rssi_upper(-55);
    EXPECT_EQ(stateOf("txpower.rssi.upper").inForce, -55);
}

TEST_F(Properties, StateOfOneThatIsReadEachTimeIsInForceAtOnce) {
    root_.setProperty("persist.vendor.wifi.txchain.qualcomm", "1");
    EXPECT_EQ(stateOf("txchain.qualcomm").effect, PropertyEffect::AtOnce);
    EXPECT_EQ(stateOf("txchain.qualcomm").inForce, 1);
    root_.setProperty("persist.vendor.wifi.cmd.noa.p2p", "yes");
    EXPECT_EQ(stateOf("cmd.noa.p2p").effect, PropertyEffect::Both);
    EXPECT_EQ(stateOf("cmd.noa.p2p").inForce, 0);
}

// Bools

TEST_F(Properties, BoolIsTrueOrFalseInAnyCaseOrOneOrZero) {
    for (const char* text : {"1", "true", "TRUE", "True", "tRuE"}) {
        EXPECT_EQ(boolOf(text), true) << text;
    }
    for (const char* text : {"0", "false", "FALSE", "False"}) {
        EXPECT_EQ(boolOf(text), false) << text;
    }
}

TEST_F(Properties, YesOnAndOtherTextsDoNotParseAsBool) {
    for (const char* text : {"yes", "on", "no", "off", "y", "t", "2", "01", "true ", " true",
                             "truee", "tru", "-1", ""}) {
        EXPECT_EQ(boolOf(text), std::nullopt) << '"' << text << '"';
    }
}

// Integers

TEST_F(Properties, IntWithLeadingWhiteSpaceParses) {
    EXPECT_EQ(intOf(" 0x1F"), 31);
    EXPECT_EQ(intOf(" \t\n\v\f\r7"), 7);
    EXPECT_EQ(unsignedOf(" 0x1F"), 31U);
}

TEST_F(Properties, IntWith0xIsHexadecimal) {
    EXPECT_EQ(intOf("0x1F"), 31);
    EXPECT_EQ(intOf("0X1f"), 31);
    EXPECT_EQ(unsignedOf("0xffffffff"), 4294967295U);
    EXPECT_EQ(intOf("0x"), std::nullopt);
    EXPECT_EQ(intOf("1F"), std::nullopt);
    EXPECT_EQ(intOf("-0x1F"), std::nullopt) << "the text has to begin with 0x";
}

TEST_F(Properties, IntWithALeadingZeroIsDecimal) {
    EXPECT_EQ(intOf("012"), 12);
    EXPECT_EQ(intOf("09"), 9);
    EXPECT_EQ(unsignedOf("012"), 12U);
}

TEST_F(Properties, IntWithTrailingCharactersDoesNotParse) {
    for (const char* text : {"12abc", "12 ", "1.5", "1,5", "0x1Fg", "12k", "--5", "abc", ""}) {
        EXPECT_EQ(intOf(text), std::nullopt) << '"' << text << '"';
        EXPECT_EQ(unsignedOf(text), std::nullopt) << '"' << text << '"';
    }
}

TEST_F(Properties, NegativeNumberParsesAsIntButNotAsUnsigned) {
    EXPECT_EQ(intOf("-5"), -5);
    EXPECT_EQ(unsignedOf("-5"), std::nullopt);
    EXPECT_EQ(unsignedOf(" -5"), std::nullopt);
    EXPECT_EQ(unsignedOf("-0"), std::nullopt);
}

TEST_F(Properties, IntBeyond32BitsDoesNotParse) {
    EXPECT_EQ(intOf("2147483647"), 2147483647);
    EXPECT_EQ(intOf("-2147483648"), -2147483647 - 1);
    for (const char* text : {"2147483648", "-2147483649", "0x80000000", "99999999999999999999"}) {
        errno = 0;
        EXPECT_EQ(intOf(text), std::nullopt) << text;
        EXPECT_EQ(errno, ERANGE) << text;
    }
}

TEST_F(Properties, UnsignedBeyond32BitsDoesNotParse) {
    EXPECT_EQ(unsignedOf("4294967295"), 4294967295U);
    EXPECT_EQ(unsignedOf("4294967296"), std::nullopt);
    EXPECT_EQ(unsignedOf("99999999999999999999"), std::nullopt);
}

}  // namespace
