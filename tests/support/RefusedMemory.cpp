#include "tests/support/RefusedMemory.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace test {

namespace {

thread_local bool counting = false;
thread_local int untilRefused = 0;

}  // namespace

RefusedMemory::RefusedMemory(int number) {
    untilRefused = number;
    counting = true;
}

RefusedMemory::~RefusedMemory() { counting = false; }

bool RefusedMemory::happened() const { return untilRefused <= 0; }

}  // namespace test

// The library's other forms of them call these.

void* operator new(size_t size) {
    void* memory = nullptr;
    if (!test::counting || --test::untilRefused != 0) {
        memory = malloc(size > 0 ? size : 1);
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { free(memory); }
