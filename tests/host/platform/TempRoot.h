#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/TempFolder.h"

/** A fresh CORVID_WIFI_ROOT for one test; removed with it. */
class TempRoot {
  public:
    TempRoot() { setenv("CORVID_WIFI_ROOT", folder_.path().c_str(), 1); }
    ~TempRoot() { unsetenv("CORVID_WIFI_ROOT"); }
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    /** A device path inside the root. */
    std::string path(const std::string& devicePath) const { return folder_.path() + devicePath; }

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
    test::TempFolder folder_;
};
