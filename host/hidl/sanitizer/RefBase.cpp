// android::RefBase for builds with the thread sanitizer, in place of libutils's.
//
// The sanitizer does not see the atomic operations inside libutils, so it takes the end of any
// object that two threads have shared for a race. Suppressing that would hide the real ones, since
// every such report has RefBase on its stack. This one does the same with atomics that the
// sanitizer sees. The functions here take precedence over those of the shared library.

#include <atomic>
#include <cstdint>

#include <utils/RefBase.h>

namespace android {

namespace {
// Strong references of an object that never had one. Far from any number that occurs, so that it
// can be told from them while references come and go.
constexpr int32_t kNeverReferred = 1 << 28;
}  // namespace

class RefBase::weakref_impl : public RefBase::weakref_type {
  public:
    explicit weakref_impl(RefBase* object) : base(object) {}

    RefBase* const base;
    std::atomic<int32_t> strong{kNeverReferred};
    std::atomic<int32_t> weak{0};  // each strong reference is a weak one, too
    std::atomic<int32_t> lifetime{OBJECT_LIFETIME_STRONG};
};

RefBase::RefBase() : mRefs(new weakref_impl(this)) {}

RefBase::~RefBase() {
    if (mRefs->lifetime == OBJECT_LIFETIME_WEAK) {
        if (mRefs->weak == 0) {
            delete mRefs;
        }
    } else if (mRefs->strong == kNeverReferred) {
        delete mRefs;  // an object on a stack, say
    }
    const_cast<weakref_impl*&>(mRefs) = nullptr;
}

void RefBase::incStrong(const void* id) const {
    mRefs->incWeak(id);
    if (mRefs->strong.fetch_add(1) == kNeverReferred) {
        mRefs->strong.fetch_sub(kNeverReferred);
        mRefs->base->onFirstRef();
    }
}

void RefBase::decStrong(const void* id) const {
    weakref_impl* const refs = mRefs;  // the object may be gone before its references are
    if (refs->strong.fetch_sub(1) == 1) {
        refs->base->onLastStrongRef(id);
        if (refs->lifetime == OBJECT_LIFETIME_STRONG) {
            delete this;
        }
    }
    refs->decWeak(id);
}

void RefBase::forceIncStrong(const void* id) const {
    mRefs->incWeak(id);
    const int32_t count = mRefs->strong.fetch_add(1);
    if (count == kNeverReferred) {
        mRefs->strong.fetch_sub(kNeverReferred);
    }
    if (count == kNeverReferred || count == 0) {
        mRefs->base->onFirstRef();
    }
}

int32_t RefBase::getStrongCount() const { return mRefs->strong; }

RefBase* RefBase::weakref_type::refBase() const {
    return static_cast<const weakref_impl*>(this)->base;
}

void RefBase::weakref_type::incWeak(const void* /*id*/) {
    static_cast<weakref_impl*>(this)->weak.fetch_add(1);
}

void RefBase::weakref_type::decWeak(const void* id) {
    auto* const refs = static_cast<weakref_impl*>(this);
    if (refs->weak.fetch_sub(1) != 1) {
        return;
    }
    if (refs->lifetime == OBJECT_LIFETIME_WEAK) {
        refs->base->onLastWeakRef(id);
        delete refs->base;
    } else if (refs->strong != kNeverReferred) {
        delete refs;  // the object went with its last strong reference
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* id) {
    incWeak(id);
    auto* const refs = static_cast<weakref_impl*>(this);
    int32_t count = refs->strong;
    while (count > 0 || refs->lifetime == OBJECT_LIFETIME_WEAK) {
        if (count <= 0 && !refs->base->onIncStrongAttempted(FIRST_INC_STRONG, id)) {
            break;
        }
        if (refs->strong.compare_exchange_weak(count, count + 1)) {
            if (count == kNeverReferred) {
                refs->strong.fetch_sub(kNeverReferred);
            }
            return true;
        }
    }
    decWeak(id);
    return false;
}

bool RefBase::weakref_type::attemptIncWeak(const void* /*id*/) {
    auto* const refs = static_cast<weakref_impl*>(this);
    int32_t count = refs->weak;
    while (count > 0) {
        if (refs->weak.compare_exchange_weak(count, count + 1)) {
            return true;
        }
    }
    return false;
}

int32_t RefBase::weakref_type::getWeakCount() const {
    return static_cast<const weakref_impl*>(this)->weak;
}

void RefBase::weakref_type::printRefs() const {}
void RefBase::weakref_type::trackMe(bool /*enable*/, bool /*retain*/) {}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const { return mRefs; }

void RefBase::extendObjectLifetime(int32_t mode) { mRefs->lifetime.fetch_or(mode); }

void RefBase::onFirstRef() {}
void RefBase::onLastStrongRef(const void* /*id*/) {}
bool RefBase::onIncStrongAttempted(uint32_t flags, const void* /*id*/) {
    return (flags & FIRST_INC_STRONG) != 0;
}
void RefBase::onLastWeakRef(const void* /*id*/) {}

void RefBase::renameRefs(size_t /*count*/, const ReferenceRenamer& /*renamer*/) {}
void RefBase::renameRefId(weakref_type* /*ref*/, const void* /*from*/, const void* /*to*/) {}
void RefBase::renameRefId(RefBase* /*ref*/, const void* /*from*/, const void* /*to*/) {}

}  // namespace android
