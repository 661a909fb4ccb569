// Runs a fuzz target over files without libFuzzer, so the seeds and every input a
// fuzzer found replay as an ordinary test, and a crash reproduces under a debugger.
//
//   fuzz_openflight_replay fuzz/corpus/openflight [more files or directories]
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {
int replayFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 1;
}
}  // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file())
                    replayed += replayFile(entry.path());
            }
        } else {
            replayed += replayFile(path);
        }
    }
    std::cout << "replayed " << replayed << " inputs\n";
    return replayed > 0 ? 0 : 1;
}
