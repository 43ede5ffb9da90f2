#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/** A fresh CORVID_WIFI_ROOT for one test; removed with it. */
class TempRoot {
  public:
    TempRoot() {
        std::string name = std::filesystem::temp_directory_path() / "corvid-wifi.XXXXXX";
        path_ = mkdtemp(name.data());
        setenv("CORVID_WIFI_ROOT", path_.c_str(), 1);
    }

    ~TempRoot() {
        unsetenv("CORVID_WIFI_ROOT");
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    /** A device path inside the root. */
    std::string path(const std::string& devicePath) const { return path_ + devicePath; }

    /** Writes a file the way a property is changed: a rename over it. */
    void write(const std::string& devicePath, const std::string& content) const {
        const std::string target = path(devicePath);
        std::filesystem::create_directories(std::filesystem::path(target).parent_path());
        std::ofstream(target + "~", std::ios::binary) << content;
        std::filesystem::rename(target + "~", target);
    }

    std::string read(const std::string& devicePath) const {
        std::ostringstream content;
        content << std::ifstream(path(devicePath), std::ios::binary).rdbuf();
        return content.str();
    }

    void setProperty(const std::string& name, const std::string& value) const {
        write("/dev/__properties__/" + name, value + "\n");
    }

  private:
    std::string path_;
};
