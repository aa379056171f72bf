// Runs every file of a corpus folder through a fuzz target: FuzzXReplay <folder>. Names each input before it runs, so
// that the last line tells which one ended the program. A folder without inputs is a failure: nothing was checked.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

#include "FuzzSupport.h"

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
        return 2;
    }
    std::error_code error;
    std::set<std::filesystem::path> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1], error)) {
        if (entry.is_regular_file()) {
            inputs.insert(entry.path());
        }
    }
    if (error || inputs.empty()) {
        std::fprintf(stderr, "%s: %s\n", arguments[1], error ? error.message().c_str() : "the folder holds no input");
        return 1;
    }
    for (const auto& input : inputs) {
        std::fprintf(stderr, "%s\n", input.c_str());
        std::ifstream file(input, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            std::fprintf(stderr, "%s: cannot be read\n", input.c_str());
            return 1;
        }
        // An exact copy on the heap: the sanitizers see a read of one byte too many.
        std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(exact.data(), exact.size());
    }
    std::fprintf(stderr, "%zu inputs\n", inputs.size());
    return 0;
}
