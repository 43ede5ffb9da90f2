#pragma once

#include <string>

#include <android-base/unique_fd.h>

namespace sim {

/**
 * The folder that stands for the headset's `/`, for this process alone and in a known state: what
 * an earlier simulator left in it is removed. It goes into the environment as CORVID_WIFI_ROOT, for
 * every program that is started.
 */
class Root {
  public:
    /**
     * `given`: --root. Empty: $CORVID_WIFI_ROOT, or else a temporary folder that goes with this.
     * Throws std::runtime_error if it can't be made, or another simulator uses it; what that one
     * plays is not touched.
     */
    explicit Root(const std::string& given);
    ~Root();
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;

    const std::string& path() const { return path_; }

  private:
    void lock();
    void removeWhatWasLeft() const;

    std::string path_;
    bool temporary_ = false;
    android::base::unique_fd lock_;
};

}  // namespace sim
