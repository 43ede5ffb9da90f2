#include "tools/Methods.h"

#include <cstddef>
#include <optional>
#include <sstream>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tools/Arguments.h"
#include "tools/Json.h"
#include "tools/Nearest.h"

namespace Ursa::OS::Wifi::Tools {

using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::vendor::corvid::hardware::wifi::V1_0::P2pInfo;
using ::vendor::corvid::hardware::wifi::V1_0::ScsProfileV4;
using ::vendor::corvid::hardware::wifi::V1_0::ScsProfileV6;
using ::vendor::corvid::hardware::wifi::V1_0::StaInfo;
using ::vendor::corvid::hardware::wifi::V1_0::Status;

namespace {

// Results: how each result type is printed.

template <typename Result>
Answer toAnswer(const Result& /*result*/) {
    static_assert(!std::is_same_v<Result, Result>, "no toAnswer prints this type of result yet");
    return {};
}

Answer toAnswer(const Status& status) {
    return {toLine({{"code", status.code}, {"description", std::string(status.description)}}),
            status.code == 0};
}

Answer toAnswer(const P2pInfo& info) {
    return {toLine({{"frequency", info.frequency}, {"bandwidth", info.bandwidth}}), true};
}

Answer toAnswer(const StaInfo& info) {
    return {
        toLine({{"frequency", info.frequency}, {"rssi", info.rssi}, {"bandwidth", info.bandwidth}}),
        true};
}

Answer toAnswer(const hidl_string& text) { return {toLine({{"text", std::string(text)}}), true}; }

/** A plain number: the only methods that return one return an id. */
Answer toAnswer(int32_t id) { return {toLine({{"id", id}}), id >= 0}; }

// Arguments: visits the values that the words of an argument set, in order. A record has one word
// per field.

template <typename Value, typename Visitor>
void visitWords(Value& value, const Visitor& visit) {
    static_assert(!std::is_class_v<Value> || std::is_same_v<Value, hidl_string> ||
                      std::is_same_v<Value, CallbackArgument>,
                  "no visitWords visits the fields of this record yet");
    visit(value);
}

template <typename Visitor>
void visitWords(ScsProfileV4& profile, const Visitor& visit) {
    visit(profile.localIp);
    visit(profile.localPort);
    visit(profile.remoteIp);
    visit(profile.remotePort);
    visit(profile.dscp);
    visit(profile.protocol);
}

template <typename Visitor>
void visitWords(ScsProfileV6& profile, const Visitor& visit) {
    visit(profile.localIp);
    visit(profile.localPort);
    visit(profile.remoteIp);
    visit(profile.remotePort);
    visit(profile.flowLabel);
    visit(profile.dscp);
    visit(profile.protocol);
}

/** The callback that receives the answer has no words on the command line. */
template <typename Result, typename Visitor>
void visitWords(std::function<void(const Result&)>& /*takeAnswer*/, const Visitor& /*visit*/) {}

template <typename Arguments, typename Visitor>
void visitAllWords(Arguments& arguments, const Visitor& visit) {
    std::apply([&](auto&... argument) { (visitWords(argument, visit), ...); }, arguments);
}

/** If `argument` is the callback that receives the answer, makes it store it in `answer`. */
template <typename Argument>
void connectAnswer(Argument& /*argument*/, std::optional<Answer>& /*answer*/) {}

template <typename Result>
void connectAnswer(std::function<void(const Result&)>& takeAnswer, std::optional<Answer>& answer) {
    takeAnswer = [&answer](const Result& result) { answer = toAnswer(result); };
}

/**
 * Calls `function` of `service`. The answer comes through the callback in the last argument or, if
 * there is no callback, as the return value.
 */
template <typename Returned, typename Function, typename Arguments>
Answer perform(IWifi& service, Function function, Arguments arguments) {
    std::optional<Answer> answer;
    const Return<Returned> result = std::apply(
        [&](auto&... argument) {
            (connectAnswer(argument, answer), ...);
            return (service.*function)(argument...);
        },
        arguments);
    requireAnswer(result);
    if constexpr (!std::is_void_v<Returned>) {
        answer = toAnswer(static_cast<Returned>(result));
    }
    if (!answer) {
        throw ServiceError("the service answered nothing");
    }
    return *answer;
}

/** A table entry. `function` may be of any version of IWifi; its signature gives the types. */
template <typename Returned, typename Version, typename... Arguments>
Method method(const char* name, Return<Returned> (Version::*function)(Arguments...),
              const std::vector<const char*>& parameterNames = {}) {
    using Values = std::tuple<std::decay_t<Arguments>...>;
    Method entry;
    entry.name = name;

    Values types{};
    visitAllWords(types, [&](const auto& value) {
        entry.parameters.push_back(
            {parameterNames.at(entry.parameters.size()), describeArgument(value)});
    });

    entry.bind = [function, name = entry.name,
                  parameters = entry.parameters](const std::vector<std::string>& words) -> Call {
        Values values{};
        size_t index = 0;
        visitAllWords(values, [&](auto& value) {
            const Parameter& parameter = parameters.at(index);
            const std::string& word = words.at(index);
            if (!parseArgument(word, value)) {
                throw UsageError(name + ": " + parameter.name + " is " + toLine(word) +
                                 "; allowed is " + parameter.allowed);
            }
            ++index;
        });
        return [function, values](IWifi& service) {
            return perform<Returned>(service, function, values);
        };
    };
    return entry;
}

}  // namespace

const std::vector<Method>& allMethods() {
    static const std::vector<Method> methods = {
        method("clearScs", &IWifi::clearScs, {"ID"}),
        method("dumpInfo", &IWifi::dumpInfo),
        method("getP2pInfo", &IWifi::getP2pInfo),
        method("getStaInfo", &IWifi::getStaInfo),
        method("isP2pPairedDeviceType", &IWifi::isP2pPairedDeviceType, {"TYPE"}),
        method("registerCorvidWifiManagerCallback", &IWifi::registerCorvidWifiManagerCallback,
               {"CALLBACK"}),
        method("setElnaBypass", &IWifi::setElnaBypass, {"MODE"}),
        method("setMccTimeAllocation", &IWifi::setMccTimeAllocation, {"VALUE"}),
        method("setP2pNoa", &IWifi::setP2pNoa, {"COUNT", "NOA_VALUE1", "NOA_VALUE2"}),
        method("setP2pPairedDeviceType", &IWifi::setP2pPairedDeviceType, {"TYPE"}),
        method("setScsV4", &IWifi::setScsV4,
               {"LOCAL_IP", "LOCAL_PORT", "REMOTE_IP", "REMOTE_PORT", "DSCP", "PROTOCOL"}),
        method("setScsV6", &IWifi::setScsV6,
               {"LOCAL_IP", "LOCAL_PORT", "REMOTE_IP", "REMOTE_PORT", "FLOW_LABEL", "DSCP",
                "PROTOCOL"}),
        method("startCsa", &IWifi::startCsa, {"CHANNEL", "BANDWIDTH"}),
        method("unregisterCorvidWifiManagerCallback", &IWifi::unregisterCorvidWifiManagerCallback,
               {"CALLBACK"}),
        method("updateTxPowerConfig", &IWifi::updateTxPowerConfig, {"ALLOWED"}),
    };
    return methods;
}

void requireAnswer(const ::android::hardware::details::return_status& result) {
    if (!result.isOk()) {
        throw ServiceError(result.isDeadObject()
                               ? "the service died during the call"
                               : "the call did not get through: " + result.description());
    }
}

std::string Method::usage() const {
    std::string text = name;
    for (const Parameter& parameter : parameters) {
        text += " " + parameter.name;
    }
    return text;
}

Call bindCall(const std::vector<std::string>& words) {
    std::vector<std::string> names;
    for (const Method& method : allMethods()) {
        if (words.empty() || words.front() != method.name) {
            names.push_back(method.name);
            continue;
        }
        const std::vector<std::string> arguments(words.begin() + 1, words.end());
        if (arguments.size() != method.parameters.size()) {
            const size_t wanted = method.parameters.size();
            throw UsageError(method.name + " takes " + std::to_string(wanted) +
                             (wanted == 1 ? " argument, not " : " arguments, not ") +
                             std::to_string(arguments.size()) + "; allowed is: call " +
                             method.usage());
        }
        return method.bind(arguments);
    }
    throw UsageError((words.empty() ? "call needs a method"
                                    : "there is no method " + toLine(words.front()) +
                                          didYouMean(words.front(), names)) +
                     "; allowed are " + joined(names));
}

std::string listMethods() {
    std::ostringstream text;
    for (const Method& method : allMethods()) {
        text << method.usage() << "\n";
        for (const Parameter& parameter : method.parameters) {
            text << "    " << parameter.name << ": " << parameter.allowed << "\n";
        }
    }
    return text.str();
}

}  // namespace Ursa::OS::Wifi::Tools
