#pragma once

#include <optional>
#include <string>

#include <android/frameworks/stats/1.0/types.h>

namespace host {

/**
 * An atom as one line of JSON, without the line's end, for example
 * `{"reverseDomainName":"com.corvid.os","atomId":116183,"values":[{"int":1},{"string":"X"}]}`.
 * A value is {"int":N}, {"long":N}, {"float":N} or {"string":"..."}; a float that is no number is
 * {"float":null}. What is not UTF-8 in a string becomes U+FFFD. Returns nothing for an atom with a
 * value of an unknown kind, which only a broken client sends.
 */
std::optional<std::string> atomJson(const android::frameworks::stats::V1_0::VendorAtom& atom);

}  // namespace host
