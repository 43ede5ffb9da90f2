#pragma once

#include <map>
#include <string>
#include <string_view>

#include "tools/Json.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * Replaces what names people, places and networks: MAC and IP addresses, SSIDs and passphrases. The
 * same one gets the same stand-in in every text, so that one can still be told from another.
 */
class Anonymizer {
  public:
    /** Lines that are JSON stay it. */
    std::string text(std::string_view original);

  private:
    std::string standIn_(const std::string& kind, const std::string& original);
    /** A line that is no JSON. */
    std::string line_(const std::string& original);
    Json json_(const Json& original);

    std::map<std::string, std::map<std::string, std::string>> standIns_;  ///< by kind, by original
};

}  // namespace Ursa::OS::Wifi::Tools
