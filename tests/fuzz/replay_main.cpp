// Replays every file of a fuzz target's seed corpus through it, so ordinary test runs exercise each target.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        const std::filesystem::path root(argv[i]);
        if (!std::filesystem::exists(root, error)) {
            continue;
        }
        std::vector<std::filesystem::path> files;
        if (std::filesystem::is_directory(root, error)) {
            for (const auto &entry : std::filesystem::recursive_directory_iterator(root, error)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
        } else {
            files.push_back(root);
        }
        for (const auto &file : files) {
            std::ifstream in(file, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::printf("replayed %d inputs\n", replayed);
    return 0;
}
