// The C library's side of a thread's end as bionic has it, for the program that this is linked to:
// pthread_exit() ends the thread where it is and unwinds nothing. Then, as there, the destructors
// of thread_local objects run.

#include <dlfcn.h>
#include <pthread.h>
#include <setjmp.h>

#include <memory>

namespace {

/** Where the calling thread began. */
thread_local sigjmp_buf* beginning = nullptr;

struct Start {
    void* (*function)(void*);
    void* argument;
};

void* runThread(void* given) {
    const Start start = *std::unique_ptr<Start>(static_cast<Start*>(given));
    sigjmp_buf here;
    beginning = &here;
    // 0: the signal that was handled stays blocked, as in bionic, which blocks all of them.
    return sigsetjmp(here, 0) == 0 ? start.function(start.argument) : nullptr;
}

}  // namespace

// std::thread and the C library find these before their own.

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*function)(void*), void* argument) {
    static const auto real =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    auto start = std::make_unique<Start>(Start{function, argument});
    const int error = real(thread, attributes, runThread, start.get());
    if (error == 0) {
        // The thread's, which frees it.
        static_cast<void>(start.release());
    }
    return error;
}

extern "C" void pthread_exit(void* /*result*/) { siglongjmp(*beginning, 1); }
