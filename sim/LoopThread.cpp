#include "sim/LoopThread.h"

#include <future>

namespace sim {

LoopThread::LoopThread() : thread_([this] { loop_.run(); }) {}

LoopThread::~LoopThread() {
    loop_.post([this] { loop_.stop(); });
    thread_.join();
}

void LoopThread::run(const std::function<void()>& task) {
    if (isCurrent()) {
        task();
        return;
    }
    std::promise<void> done;
    loop_.post([&] {
        task();
        done.set_value();
    });
    done.get_future().wait();
}

}  // namespace sim
