#pragma once

#include <android/frameworks/stats/1.0/IStats.h>
#include <hidl/Status.h>

namespace host {

/**
 * The statistics service: appends each atom as one line of JSON (AtomJson.h) to
 * /data/misc/stats/atoms.jsonl, creating its folders, before the report's caller goes on. Logs and
 * drops an atom that can't be written.
 */
class Stats : public android::frameworks::stats::V1_0::IStats {
  public:
    android::hardware::Return<void> reportVendorAtom(
        const android::frameworks::stats::V1_0::VendorAtom& atom) override;
};

}  // namespace host
