// Debian's libutils asks libbacktrace for this one function, which only its CallStack calls. The
// packaged libbacktrace brings the whole 7-Zip library into every process that has a RefBase: a
// third of the daemon's memory, for stack traces that it never prints. This library has the same
// name and the one function, and is found first.

#include <log/log.h>
#include <sys/types.h>

class BacktraceMap;

class Backtrace {
  public:
    static Backtrace* Create(pid_t pid, pid_t tid, BacktraceMap* map);
};

Backtrace* Backtrace::Create(pid_t /*pid*/, pid_t /*tid*/, BacktraceMap* /*map*/) {
    LOG_ALWAYS_FATAL("no stack traces in this build: see host/backtrace");
}
