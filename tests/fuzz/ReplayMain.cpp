// Stands in for libFuzzer in the normal test run: feeds every file named on the command line (a
// folder: each regular file in it, in name order) to the target once. A crash, a sanitizer report
// or a target's own abort fails the test; the input is named on the line before.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;

// The inputs one argument names; false when it names nothing readable.
bool CollectInputs(const fs::path& arg, std::vector<fs::path>& out) {
    std::error_code ec;
    if (fs::is_regular_file(arg, ec)) {
        out.push_back(arg);
        return true;
    }
    if (!fs::is_directory(arg, ec)) return false;
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(arg, ec))
        if (entry.is_regular_file(ec)) files.push_back(entry.path());
    if (ec) return false;
    std::sort(files.begin(), files.end());
    out.insert(out.end(), files.begin(), files.end());
    return true;
}

// The whole file in a buffer of exactly its size, so that a read one byte past the input lands
// outside the allocation as it does under libFuzzer.
bool RunOne(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return false;
    auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    LLVMFuzzerTestOneInput(copy.get(), bytes.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...\n", argv[0]);
        return 2;
    }
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (!CollectInputs(argv[i], inputs)) {
            std::fprintf(stderr, "%s: cannot read\n", argv[i]);
            return 1;
        }
    }
    // An empty corpus would pass while testing nothing.
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 1;
    }
    for (const fs::path& file : inputs) {
        std::fprintf(stderr, "Running: %s\n", file.c_str());
        std::fflush(stderr);
        if (!RunOne(file)) {
            std::fprintf(stderr, "%s: cannot read\n", file.c_str());
            return 1;
        }
    }
    std::fprintf(stderr, "Replayed %zu inputs\n", inputs.size());
    return 0;
}
