#pragma once

namespace test {

/**
 * For as long as it lives, one allocation by `new` of the thread that made it fails: the one with
 * this number, from 1. A program that uses it links refused_memory; what shared libraries allocate
 * does not count.
 */
class RefusedMemory {
  public:
    explicit RefusedMemory(int number);
    ~RefusedMemory();
    RefusedMemory(const RefusedMemory&) = delete;
    RefusedMemory& operator=(const RefusedMemory&) = delete;

    /** Whether there were so many. */
    bool happened() const;
};

}  // namespace test
