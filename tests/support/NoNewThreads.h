#pragma once

#include <pthread.h>

#include <cstddef>
#include <limits>
#include <string>
#include <system_error>
#include <thread>

namespace test {

/** While it lives, starting a thread fails: the default stack size exceeds the address space. */
class NoNewThreads {
  public:
    NoNewThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t endless;
        pthread_attr_init(&endless);
        pthread_attr_setstacksize(&endless, std::numeric_limits<size_t>::max() / 4 * 3 + 1);
        pthread_setattr_default_np(&endless);
        pthread_attr_destroy(&endless);
    }
    ~NoNewThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

    /** What std::thread then throws says; each C++ library has words of its own. */
    static std::string refusal() {
        const NoNewThreads limit;
        try {
            std::thread([] {}).join();
        } catch (const std::system_error& error) {
            return error.what();
        }
        return "no refusal";
    }

    NoNewThreads(const NoNewThreads&) = delete;
    NoNewThreads& operator=(const NoNewThreads&) = delete;

  private:
    pthread_attr_t before_;
};

}  // namespace test
