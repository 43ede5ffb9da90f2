// corvid-wifi: the command-line client of the service.

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/CommandLine.h"
#include "tools/Methods.h"
#include "tools/Words.h"

namespace {

using namespace ::Ursa::OS::Wifi::Tools;

int run(std::vector<std::string> words) {
    if (!words.empty() && words.front() == "-h") {
        words.front() = "--help";
    }
    const CommandLine line = readCommandLine(words, allWords());
    const int status = line.word->run(line);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::perror("corvid-wifi: can't write");
        return kFailure;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const UsageError& error) {
        std::fprintf(stderr, "corvid-wifi: %s\nTry: corvid-wifi --help, corvid-wifi call --list\n",
                     error.what());
        return kUsage;
    } catch (const ServiceError& error) {
        std::fprintf(stderr, "corvid-wifi: %s\n", error.what());
        return kNoService;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "corvid-wifi: %s\n", error.what());
        return kFailure;
    }
}
