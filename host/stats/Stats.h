#pragma once

#include <android/frameworks/stats/1.0/IStats.h>
#include <hidl/Status.h>

namespace host {

/**
 * The statistics service: appends each atom as one line of JSON (see AtomJson.h) to
 * /data/misc/stats/atoms.jsonl, whose folders it creates. The line is in the file when the
 * report's caller goes on. An atom that can't be written is logged and dropped.
 */
class Stats : public android::frameworks::stats::V1_0::IStats {
  public:
    android::hardware::Return<void> reportVendorAtom(
        const android::frameworks::stats::V1_0::VendorAtom& atom) override;
};

}  // namespace host
