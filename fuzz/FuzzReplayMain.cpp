// Replays a fuzz target's corpus without libFuzzer: every file named on the command line, or
// every file in a directory named there, goes through LLVMFuzzerTestOneInput once. A target that
// finds a fault aborts, so a finding kept in the corpus fails the test that replays it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (!std::filesystem::is_directory(path)) {
            inputs.push_back(path);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path))
            if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());  // the same order on every run
    if (inputs.empty()) {
        std::fputs("fuzz replay: no inputs\n", stderr);
        return 1;
    }
    for (const auto& path : inputs) {
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "fuzz replay: cannot read %s\n", path.c_str());
            return 1;
        }
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "fuzz replay: %zu inputs\n", inputs.size());
    return 0;
}
