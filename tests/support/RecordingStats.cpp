#include "tests/support/RecordingStats.h"

#include <cstdlib>

namespace test {

namespace {

std::string toText(const RecordingStats::VendorAtom::Value& value) {
    using Kind = RecordingStats::VendorAtom::Value::hidl_discriminator;
    switch (value.getDiscriminator()) {
        case Kind::intValue:
            return std::to_string(value.intValue());
        case Kind::stringValue:
            return '"' + std::string(value.stringValue()) + '"';
        default:
            return "?";  // the daemon reports no other kind
    }
}

}  // namespace

android::hardware::Return<void> RecordingStats::reportVendorAtom(const VendorAtom& atom) {
    if (broken_) {
        return android::hardware::Status::fromStatusT(android::DEAD_OBJECT);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    atoms_.push_back(atom);
    return android::hardware::Void();
}

std::vector<RecordingStats::VendorAtom> RecordingStats::atoms() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return atoms_;
}

std::vector<std::string> RecordingStats::reports() const {
    std::vector<std::string> texts;
    for (const VendorAtom& atom : atoms()) {
        std::string text = std::to_string(atom.atomId);
        for (size_t i = 1; i < atom.values.size(); ++i) {
            text += ' ' + toText(atom.values[i]);
        }
        texts.push_back(text);
    }
    return texts;
}

android::sp<RecordingStats> startRecordingStats() {
    android::sp<RecordingStats> stats = new RecordingStats;
    if (stats->registerAsService("default") != android::OK) {
        abort();
    }
    return stats;
}

}  // namespace test
