#define LOG_TAG "corvid-statsd"

#include "Stats.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <log/log.h>
#include <sys/stat.h>

#include "AtomJson.h"
#include "HostRoot.h"

namespace host {

using android::hardware::Return;
using android::hardware::Void;

Return<void> Stats::reportVendorAtom(const android::frameworks::stats::V1_0::VendorAtom& atom) {
    const std::optional<std::string> json = atomJson(atom);
    if (!json) {
        ALOGE("Dropping atom %d: it has a value of an unknown kind", atom.atomId);
        return Void();
    }
    const std::string path = rootedPath("/data/misc/stats/atoms.jsonl");
    // Opened for each atom: whoever reads the file may move it away or delete it.
    const auto openFile = [&] {
        return open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    };
    android::base::unique_fd file(openFile());
    if (!file.ok() && errno == ENOENT && createParentFolders(path)) {
        file.reset(openFile());
    }
    struct stat before = {};
    const bool isOpen = file.ok() && fstat(file.get(), &before) == 0;
    if (isOpen && android::base::WriteStringToFd(*json + "\n", file.get())) {
        return Void();
    }
    ALOGE("Dropping atom %d: can't write %s: %s", atom.atomId, path.c_str(), strerror(errno));
    // On a full disk a part of the line may be there, and the next one would be behind it.
    if (isOpen && ftruncate(file.get(), before.st_size) != 0) {
        ALOGE("%s may end in a part of a line: %s", path.c_str(), strerror(errno));
    }
    return Void();
}

}  // namespace host
