// Runs a fuzzer's entry over files, in a build without libFuzzer: `fuzz_json fuzz/corpus/fuzz_json`. Each file is given
// whole and cut at every byte. A fuzzer aborts where it finds a fault; the input is the last one that is named.

#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "util/ReadFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    constexpr std::size_t largest = std::size_t{1} << 20;
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            const auto [bytes, error] = util::readFile(entry.path().string(), largest);
            std::printf("%s %s\n", entry.path().c_str(), error.c_str());
            std::fflush(stdout);
            if (!error.empty())
                return 1;
            for (std::size_t size = 0; size <= bytes.size(); ++size, ++inputs)
                LLVMFuzzerTestOneInput(bytes.data(), size);
        }
    }
    std::printf("%zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
