#pragma once
// The committed containers of tests/images/containers (made by
// scripts/fixtures/make-container-fixtures): each FILE.zst unpacked once into the build folder
// under its own name, which segment sets and descriptors refer to.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>

namespace kestrin::test {

inline std::filesystem::path ContainerDir() {
    return std::filesystem::path(KESTRIN_SOURCE_DIR) / "tests/images/containers";
}

// Path of the unpacked `file` (relative to the containers folder), or "" when it failed.
inline std::string UnpackContainer(const std::string& file) {
    namespace fs = std::filesystem;
    fs::path src = ContainerDir() / (file + ".zst");
    fs::path out = fs::path(KESTRIN_BINARY_DIR) / "test-images/containers" / file;
    std::error_code ec;
    if (!fs::exists(src, ec)) return {};
    fs::create_directories(out.parent_path(), ec);
    if (fs::exists(out, ec) && fs::last_write_time(out, ec) >= fs::last_write_time(src, ec)) return out.string();
    std::string tmp = out.string() + ".part" + std::to_string(::getpid());
    std::string cmd = "zstd -q -d -f '" + src.string() + "' -o '" + tmp + "'";
    if (std::system(cmd.c_str()) != 0) return {};
    fs::rename(tmp, out, ec);
    return ec ? std::string() : out.string();
}

struct ContainerFixture {
    std::string file, format, twin, missingParent, damage, sha256;
    std::vector<std::string> parts;
};

// Every entry of containers.json.
inline std::vector<ContainerFixture> ContainerFixtures() {
    std::ifstream f(ContainerDir() / "containers.json");
    nlohmann::json j = nlohmann::json::parse(f, nullptr, false);
    std::vector<ContainerFixture> out;
    if (j.is_discarded()) return out;
    for (const auto& e : j["files"]) {
        ContainerFixture c;
        c.file = e.value("file", "");
        c.format = e.value("format", "");
        c.twin = e.value("twin", "");
        c.missingParent = e.value("missing_parent", "");
        c.damage = e.value("damage", "");
        c.sha256 = e.value("sha256", "");
        if (e.contains("parts"))
            for (const auto& p : e["parts"]) c.parts.push_back(p.get<std::string>());
        out.push_back(std::move(c));
    }
    return out;
}

// Unpacks a fixture with all its parts; the path of its first file, or "".
inline std::string UnpackFixture(const ContainerFixture& c) {
    for (const std::string& p : c.parts)
        if (UnpackContainer(p).empty()) return {};
    return UnpackContainer(c.file);
}

} // namespace kestrin::test
