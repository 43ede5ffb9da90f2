#include "AtomJson.h"

#include <cstdint>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace host {

using android::frameworks::stats::V1_0::VendorAtom;

namespace {

/** Fields keep their order; a float is written as the shortest text that reads back the same. */
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, int64_t,
                                  uint64_t, float>;

}  // namespace

std::optional<std::string> atomJson(const VendorAtom& atom) {
    using Kind = VendorAtom::Value::hidl_discriminator;
    Json values = Json::array();
    for (const VendorAtom::Value& value : atom.values) {
        Json object;
        switch (value.getDiscriminator()) {
            case Kind::intValue:
                object["int"] = value.intValue();
                break;
            case Kind::longValue:
                object["long"] = value.longValue();
                break;
            case Kind::floatValue:
                object["float"] = value.floatValue();
                break;
            case Kind::stringValue:
                object["string"] = std::string(value.stringValue());
                break;
            default:
                return std::nullopt;
        }
        values.push_back(std::move(object));
    }
    Json json;
    json["reverseDomainName"] = std::string(atom.reverseDomainName);
    json["atomId"] = atom.atomId;
    json["values"] = std::move(values);
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace host
