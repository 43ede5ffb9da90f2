// loaded_monitor WAIT_MS PATH...: what bare_monitor does, with the libraries that the daemon loads
// and a second thread, which only waits. The least that the daemon could be on them.

#include <unistd.h>

#include <thread>

#include "bare_client.h"

int main(int argc, char** argv) {
    std::thread([] { pause(); }).detach();
    return bare_monitor(argc, argv);
}
