#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Gives each file of the directories named in the arguments to the fuzz target that this is linked with, and fails when
// one holds none. What the target finds ends the process; the last name printed is the file that did it.
int main(int argc, char** argv) {
    try {
        for (int i = 1; i < argc; ++i) {
            size_t count = 0;
            for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
                static_cast<void>(std::fprintf(stderr, "%s\n", entry.path().c_str()));
                std::ifstream file(entry.path(), std::ios::binary);
                const std::string seed(std::istreambuf_iterator<char>(file), {});
                static_cast<void>(LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(seed.data()), seed.size()));
                ++count;
            }
            if (count == 0) {
                static_cast<void>(std::fprintf(stderr, "no seed in %s\n", argv[i]));
                return EXIT_FAILURE;
            }
            static_cast<void>(std::printf("%zu seeds\n", count));
        }
        return argc > 1 ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& failure) {
        static_cast<void>(std::fprintf(stderr, "%s\n", failure.what()));
        return EXIT_FAILURE;
    }
}
