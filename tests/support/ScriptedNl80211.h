#pragma once

#include <string>
#include <vector>

#include "tests/support/FakeNl80211.h"

namespace test {

/**
 * A simulated kernel with the interfaces and the station that the test sets; at first wlan0 and no
 * station. Vendor commands and frames succeed unless refused. Any thread.
 */
class ScriptedNl80211 {
  public:
    /** As FakeNl80211: the process has the redirect library in it. */
    explicit ScriptedNl80211(const std::string& root);

    void setInterfaces(std::vector<std::string> names);

    /**
     * There is a station link of this width from now on: 1 = 20, 2 = 40, 3 = 80, 4 = 80+80,
     * 5 = 160 MHz; 0 for no link.
     */
    void setStationBandwidth(int code);

    /**
     * `cmd`, NL80211_CMD_VENDOR or NL80211_CMD_FRAME, is answered with this negative errno from
     * now on; 0: succeeds.
     */
    void refuse(int cmd, int error);

    /** The requests so far with this command, in order. */
    std::vector<NetlinkRequest> requests(int cmd) const;

    FakeNl80211& kernel() { return kernel_; }

  private:
    FakeNl80211 kernel_;
};

}  // namespace test
