#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <hidl/Status.h>
#include <vendor/corvid/hardware/wifi/1.0/IWifi.h>

namespace Ursa::OS::Wifi::Tools {

/** The newest version of the interface. */
using IWifi = ::vendor::corvid::hardware::wifi::V1_0::IWifi;

/** A wrong command line: what() says what is wrong and what is allowed. */
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** The service is not running, or died during a call: what() says which. */
class ServiceError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** It died during a call. */
class ServiceDied : public ServiceError {
    using ServiceError::ServiceError;
};

/** Throws a ServiceError if the call was not answered. */
void requireAnswer(const ::android::hardware::details::return_status& result);

/** The service's answer to a call. */
struct Answer {
    /** One JSON object: a record's fields, {"id":...} for an id, {"text":...} for a text. */
    std::string json;
    /** False for a status code other than 0 and for a negative id. */
    bool success;
};

/** A method with its arguments, ready to be called any number of times; throws ServiceError. */
using Call = std::function<Answer(IWifi&)>;

/** One word of a method's arguments. */
struct Parameter {
    std::string name;
    std::string allowed;  ///< for the help
};

/** A method of the interface, as on the command line. */
struct Method {
    std::string name;
    std::vector<Parameter> parameters;  ///< a record becomes one parameter per field
    /** Takes one word per parameter; throws UsageError for a word that is not allowed. */
    std::function<Call(const std::vector<std::string>& words)> bind;

    /** For example "startCsa CHANNEL BANDWIDTH". */
    std::string usage() const;
};

/** Every method, in the interface's order. A new one needs a line in Methods.cpp. */
const std::vector<Method>& allMethods();

/** The call of `call METHOD [ARG ...]`; `words` begins with the method. Throws UsageError. */
Call bindCall(const std::vector<std::string>& words);

/** What `call --list` prints: each method's usage, with its parameters indented below it. */
std::string listMethods();

}  // namespace Ursa::OS::Wifi::Tools
