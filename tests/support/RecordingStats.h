#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <android/frameworks/stats/1.0/IStats.h>
#include <hidl/Status.h>

namespace test {

/**
 * A statistics service in the test's process that records the reports. startRecordingStats()
 * registers it, after which it is found like the real one. Any thread.
 */
class RecordingStats : public android::frameworks::stats::V1_0::IStats {
  public:
    using VendorAtom = android::frameworks::stats::V1_0::VendorAtom;

    android::hardware::Return<void> reportVendorAtom(const VendorAtom& atom) override;

    /** From now on, calls fail as if the service's process were gone. */
    void breakTransport() { broken_ = true; }

    std::vector<VendorAtom> atoms() const;

    /**
     * The atoms as texts, for example `116183 "WIFI_STA_CONNECTED" 5180 -50`: the number, then the
     * values behind the first one, which is the time.
     */
    std::vector<std::string> reports() const;

  private:
    std::atomic<bool> broken_{false};
    mutable std::mutex mutex_;
    std::vector<VendorAtom> atoms_;
};

/** Registers one as "default" in the current device root, for the process's lifetime. */
android::sp<RecordingStats> startRecordingStats();

}  // namespace test
