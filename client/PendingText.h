#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * The pending command and its start time. A sequence lock: one thread at a time writes without
 * blocking, any thread reads. Texts are cut to kSize bytes.
 */
class PendingText {
  public:
    static constexpr size_t kSize = 64;

    struct Value {
        std::string text;
        int64_t sinceNs = 0;  ///< monotonic
    };

    /** Sets the text for a scope, also one that an exception leaves. */
    class Scope {
      public:
        Scope(PendingText& pending, std::string_view text, int64_t sinceNs) : pending_(pending) {
            pending_.set(text, sinceNs);
        }
        ~Scope() { pending_.clear(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        PendingText& pending_;
    };

    void set(std::string_view text, int64_t sinceNs) {
        const size_t length = std::min(text.size(), kSize);
        Words words;
        words[length == 0 ? 0 : (length - 1) / sizeof(uint64_t)] = 0;  // of which a part is copied
        std::memcpy(words.data(), text.data(), length);
        const uint32_t version = version_.load(std::memory_order_relaxed);
        version_.store(version + 1, std::memory_order_relaxed);  // odd: being written
        std::atomic_thread_fence(std::memory_order_release);
        for (size_t i = 0; i * sizeof(uint64_t) < length; ++i) {
            words_[i].store(words[i], std::memory_order_relaxed);
        }
        length_.store(length, std::memory_order_relaxed);
        sinceNs_.store(sinceNs, std::memory_order_relaxed);
        version_.store(version + 2, std::memory_order_release);
    }

    void clear() { sinceNs_.store(0, std::memory_order_relaxed); }

    /** std::nullopt if nothing is pending, or if writers interfere with every attempt to read. */
    std::optional<Value> get() const {
        constexpr int kAttempts = 100;
        for (int i = 0; i < kAttempts; ++i) {
            const uint32_t version = version_.load(std::memory_order_acquire);
            Words words;
            for (size_t word = 0; word < words.size(); ++word) {
                words[word] = words_[word].load(std::memory_order_relaxed);
            }
            const size_t length = length_.load(std::memory_order_relaxed);
            const int64_t sinceNs = sinceNs_.load(std::memory_order_relaxed);
            std::atomic_thread_fence(std::memory_order_acquire);
            if (version % 2 == 0 && version == version_.load(std::memory_order_relaxed)) {
                if (sinceNs == 0) {
                    return std::nullopt;
                }
                return Value{std::string(reinterpret_cast<const char*>(words.data()), length),
                             sinceNs};
            }
        }
        return std::nullopt;
    }

  private:
    using Words = std::array<uint64_t, kSize / sizeof(uint64_t)>;

    std::atomic<uint32_t> version_{0};
    std::array<std::atomic<uint64_t>, kSize / sizeof(uint64_t)> words_ = {};
    std::atomic<size_t> length_{0};
    std::atomic<int64_t> sinceNs_{0};  ///< 0: nothing is pending
};

}  // namespace Ursa::OS::Wifi
