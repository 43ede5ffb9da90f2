#include "sim/CallCheck.h"

#include <memory>

#include <sys/wait.h>

#include "sim/Child.h"
#include "sim/EventLoop.h"

namespace sim {

namespace {

constexpr int kWrongUsage = 2;

/** Without the name of the program that says it. */
std::string withoutProgram(const std::string& line) {
    const size_t colon = line.find(": ");
    return colon == std::string::npos ? line : line.substr(colon + 2);
}

}  // namespace

std::string wrongWithCall(const std::string& client, const std::vector<std::string>& words) {
    std::vector<std::string> arguments = {"call", "--check"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    EventLoop loop;
    std::string firstLine;
    int status = 0;
    std::string error;
    const auto child = Child::start(
        loop, {client, arguments, {}},
        [&firstLine](bool isError, const std::string& line) {
            if (isError && firstLine.empty()) {
                firstLine = line;
            }
        },
        [&loop, &status](int waitStatus) {
            status = waitStatus;
            loop.stop();
        },
        error);
    if (!child) {
        return error;
    }
    loop.run();
    return WIFEXITED(status) && WEXITSTATUS(status) == kWrongUsage ? withoutProgram(firstLine) : "";
}

}  // namespace sim
