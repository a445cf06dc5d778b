#pragma once
// Temporary program folders and whole-file helpers for the start-up and language tests.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace kestrin::test {

// A fresh folder, removed again with the object.
struct TempFolder {
    TempFolder() {
        std::string tmpl = testing::TempDir() + "kestrin-app-XXXXXX";
        if (::mkdtemp(tmpl.data())) path = tmpl;
    }
    ~TempFolder() {
        std::error_code ec;
        if (!path.empty()) std::filesystem::remove_all(path, ec);
    }
    std::string path;
};

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// UTF-16LE with a byte-order mark, from ASCII and two-byte UTF-8 text (enough for the tests).
inline std::string Utf16LeWithBom(const std::string& utf8) {
    std::string out = "\xFF\xFE";
    for (size_t i = 0; i < utf8.size(); ++i) {
        unsigned c = uint8_t(utf8[i]);
        if ((c & 0xE0) == 0xC0 && i + 1 < utf8.size()) c = (c & 0x1F) << 6 | (uint8_t(utf8[++i]) & 0x3F);
        out += char(c & 0xFF);
        out += char(c >> 8);
    }
    return out;
}

} // namespace kestrin::test
