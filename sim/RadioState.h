#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/** Channel widths as scenarios and the supplicant write them: 20, 40, 80, 80+80 and 160 MHz. */
enum class Width { MHz20, MHz40, MHz80, MHz80Plus80, MHz160 };

/** "80" or "80+80": the width in MHz as scenarios and the supplicant write it. */
std::string widthText(Width width);

/** The width in MHz, 80 for 80+80. */
int widthMHz(Width width);

/** The station's link to its access point. */
struct StaLink {
    std::string bssid;
    std::string ssid;
    std::string ip;
    int frequencyMHz = 0;
    Width width = Width::MHz20;
};

/** A P2P group that runs on `ifname`. */
struct P2pGroup {
    std::string ifname;
    std::string ssid;
    bool groupOwner = true;
    int frequencyMHz = 0;
    Width width = Width::MHz20;
};

/** The signal at the station: constant, or on its way from one strength to another. */
class Signal {
  public:
    using Clock = std::chrono::steady_clock;

    void set(int dbm) { walk(dbm, dbm, Clock::now(), Clock::duration::zero()); }
    /** Moves linearly during `over`, then stays. */
    void walk(int fromDbm, int toDbm, Clock::time_point begin, Clock::duration over);
    int dbm(Clock::time_point now) const;

  private:
    int from_ = -50;
    int to_ = -50;
    Clock::time_point begin_;
    Clock::duration over_{0};
};

/** What the simulated radio is doing. The supplicant and the kernel side both answer from it. */
struct RadioState {
    std::optional<StaLink> sta;
    std::optional<P2pGroup> group;
    Signal signal;
    /** Names of the network interfaces, in the order of the kernel's dump. */
    std::vector<std::string> interfaces = {"wlan0"};

    void addInterface(const std::string& name);
    void removeInterface(const std::string& name);
};

/** Own addresses of the headset. */
inline constexpr const char* kStaAddress = "02:00:00:00:00:00";
inline constexpr const char* kP2pDeviceAddress = "42:00:00:00:00:00";
inline constexpr const char* kGroupAddress = "46:00:00:00:00:00";

/** Centre frequency of the channel of `width` that contains the 20 MHz channel at `frequencyMHz`.
 */
int centreMHz(int frequencyMHz, Width width);

}  // namespace sim
