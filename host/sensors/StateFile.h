#pragma once

#include <string>

namespace Ursa::Sensors {

/**
 * A file of the service's state in /data/vendor/sensors/ (inside CORVID_WIFI_ROOT, if set). Creates
 * the folder as needed. Failures are logged and returned as false.
 */
class StateFile {
  public:
    explicit StateFile(const std::string& name);

    /** The whole content; empty if there is no such file. */
    bool read(std::string& content) const;

    /** Replaces the file in one step: a reader sees the old content or the new one. */
    bool replace(const std::string& content) const;

    /** Adds a line, in one step. `line` has no newline. */
    bool append(const std::string& line) const;

  private:
    bool failed_(const char* what) const;

    std::string path_;
};

}  // namespace Ursa::Sensors
