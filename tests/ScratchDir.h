#pragma once
// A fresh folder below the build tree for one test, removed with everything in it at the end.
#include <filesystem>
#include <string>

#include <unistd.h>

namespace kestrin::test {

struct ScratchDir {
    std::filesystem::path path;
    explicit ScratchDir(const std::string& name) {
        path = std::filesystem::path(KESTRIN_BINARY_DIR) / "test-output" / (name + "-" + std::to_string(::getpid()));
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    std::string operator/(const std::string& rel) const { return (path / rel).string(); }
};

} // namespace kestrin::test
