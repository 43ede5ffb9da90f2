// Preloaded into a daemon: refuses it memory or a thread at one place of its way.
//
// FAIL_CALLS names a file that holds a struct FailCalls (FailCalls.h), shared with the test. Calls
// are counted in all threads; those with the numbers that the test asks for fail.

#define _GNU_SOURCE
#include "tests/component/FailCalls.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <unistd.h>

#include <sys/mman.h>

// glibc's own names for what it calls malloc and so on: dlsym() would allocate.
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

static struct FailCalls* shared;

__attribute__((constructor)) static void map_shared(void) {
    const char* path = getenv("FAIL_CALLS");
    const int fd = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    void* memory = mmap(NULL, sizeof(*shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory != MAP_FAILED) {
        shared = memory;
    }
}

static int fails(struct FailedCall* call) {
    if (shared == NULL) {
        return 0;
    }
    const long number = __atomic_add_fetch(&call->count, 1, __ATOMIC_SEQ_CST);
    const long first = __atomic_load_n(&call->firstFail, __ATOMIC_SEQ_CST);
    return first != 0 && number >= first &&
           number <= __atomic_load_n(&call->lastFail, __ATOMIC_SEQ_CST);
}

void* malloc(size_t size) {
    if (fails(&shared->memory)) {
        errno = ENOMEM;
        return NULL;
    }
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    if (fails(&shared->memory)) {
        errno = ENOMEM;
        return NULL;
    }
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
    if (size > 0 && fails(&shared->memory)) {
        errno = ENOMEM;
        return NULL;
    }
    return __libc_realloc(memory, size);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
    if (fails(&shared->thread)) {
        return EAGAIN;
    }
    typedef int (*Create)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    return ((Create)dlsym(RTLD_NEXT, "pthread_create"))(thread, attributes, run, argument);
}
