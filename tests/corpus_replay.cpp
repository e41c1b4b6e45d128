// corpus_replay.cpp: feeds the files of the folder named to a fuzz target, without the fuzzer. What
// the target demands holds for each, under the sanitizers of this build.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
        // Told first: a file that breaks something ends the process.
        (void)std::fprintf(stderr, "%s\n", entry.path().filename().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
        count++;
    }
    (void)std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
