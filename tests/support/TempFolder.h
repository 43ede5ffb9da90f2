#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace test {

/** A fresh, empty folder that goes with this object. */
class TempFolder {
  public:
    TempFolder() {
        std::string name = std::filesystem::temp_directory_path() / "corvid-wifi.XXXXXX";
        path_ = mkdtemp(name.data());
    }

    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /** Without a slash at its end. */
    const std::string& path() const { return path_; }

    /** Where a file of that name is or would be. */
    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

}  // namespace test
