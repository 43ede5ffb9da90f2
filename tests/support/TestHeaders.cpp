// Nothing but what CMake includes here: the headers that are compiled once for all tests.
