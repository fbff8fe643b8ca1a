// Runs files through a fuzz target's entry function, as libFuzzer would run
// one input: each file named, and each file in a folder named. The saved
// findings and the seeds of a target so stay checked by the normal suite.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (!fs::exists(argv[i])) continue;  // a target without findings yet
        if (!fs::is_directory(argv[i])) inputs.emplace_back(argv[i]);
        else
            for (auto const& entry : fs::directory_iterator(argv[i])) inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    for (fs::path const& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replaying %s\n", path.c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
