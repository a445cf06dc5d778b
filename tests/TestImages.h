#pragma once
// Test images: tests/images/NAME.img.zst unpacked once into the build folder.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace kestrin::test {

// Path of the unpacked image, or "" when the compressed file is missing or zstd failed.
inline std::string UnpackImage(const std::string& name) {
    namespace fs = std::filesystem;
    fs::path src = fs::path(KESTRIN_SOURCE_DIR) / "tests" / "images" / (name + ".img.zst");
    fs::path dir = fs::path(KESTRIN_BINARY_DIR) / "test-images";
    fs::path out = dir / (name + ".img");
    std::error_code ec;
    if (!fs::exists(src, ec)) return {};
    fs::create_directories(dir, ec);
    if (fs::exists(out, ec) && fs::last_write_time(out, ec) >= fs::last_write_time(src, ec)) return out.string();
    std::string tmp = out.string() + ".part" + std::to_string(::getpid());
    std::string cmd = "zstd -q -d -f '" + src.string() + "' -o '" + tmp + "'";
    if (std::system(cmd.c_str()) != 0) return {};
    fs::rename(tmp, out, ec);
    return ec ? std::string() : out.string();
}

// Every byte of the file at `path` (empty when it cannot be read).
inline std::vector<uint8_t> ReadWhole(const std::string& path) {
    std::ifstream f(path, std::ios::binary | std::ios::ate);
    if (!f) return {};
    std::vector<uint8_t> out(size_t(f.tellg()));
    f.seekg(0);
    f.read(reinterpret_cast<char*>(out.data()), std::streamsize(out.size()));
    return out;
}

} // namespace kestrin::test
