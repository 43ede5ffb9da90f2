#pragma once

#include <pthread.h>

#include <cstddef>
#include <limits>

namespace test {

/** While it lives, starting a thread fails: the default stack size exceeds the address space. */
class NoNewThreads {
  public:
    NoNewThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t endless;
        pthread_attr_init(&endless);
        pthread_attr_setstacksize(&endless, std::numeric_limits<size_t>::max() / 4 + 1);
        pthread_setattr_default_np(&endless);
        pthread_attr_destroy(&endless);
    }
    ~NoNewThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

    NoNewThreads(const NoNewThreads&) = delete;
    NoNewThreads& operator=(const NoNewThreads&) = delete;

  private:
    pthread_attr_t before_;
};

}  // namespace test
