#include "tests/support/RefusedMemory.h"

#include <cstddef>
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

// The linker puts the second one in place of `operator new` and names that the first (--wrap). A
// replacement of the operator itself would collide with the sanitizers' own.
void* originalNew(size_t size) asm("__real_" CORVID_OPERATOR_NEW);
void* countedNew(size_t size) asm("__wrap_" CORVID_OPERATOR_NEW);

void* countedNew(size_t size) {
    if (test::counting && --test::untilRefused == 0) {
        throw std::bad_alloc();
    }
    return originalNew(size);
}
