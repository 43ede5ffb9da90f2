#pragma once

#include <map>
#include <string>

namespace Ursa::OS::Wifi::Tools {

/**
 * Replaces what names people, places and networks: MAC and IP addresses, SSIDs and passphrases. The
 * same one gets the same stand-in in every text, so that one can still be told from another.
 */
class Anonymizer {
  public:
    std::string text(const std::string& original);

  private:
    std::string standIn(const std::string& kind, const std::string& original);

    std::map<std::string, std::map<std::string, std::string>> standIns_;  ///< by kind, by original
};

}  // namespace Ursa::OS::Wifi::Tools
