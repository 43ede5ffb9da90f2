// Runs a fuzz target on files, and on the files of folders, that are named on the command line.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void runFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()), content.size());
}

}  // namespace

int main(int count, char** names) {
    int files = 0;
    for (int i = 1; i < count; ++i) {
        if (!std::filesystem::is_directory(names[i])) {
            runFile(names[i]);
            ++files;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(names[i])) {
            runFile(entry.path());
            ++files;
        }
    }
    std::printf("%d files\n", files);
    return files == 0 ? 1 : 0;
}
