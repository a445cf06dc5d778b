#include "cli/CliOutputs.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <streambuf>

#include <unistd.h>

#include "platform/AtomicFile.h"
#include "platform/FileIdentity.h"
#include "session/Texts.h"

namespace kestrin::cli {

namespace {

// The nearest folder on the way up that exists; empty when none does.
std::filesystem::path NearestExisting(const std::string& path) {
    std::filesystem::path p = std::filesystem::absolute(path.empty() ? "." : path);
    std::error_code ec;
    while (!std::filesystem::exists(p, ec)) {
        if (!p.has_relative_path()) return {};
        p = p.parent_path();
    }
    return p;
}

// Buffers what a stream writes and hands it to the temporary file in large pieces.
class CAtomicFileBuf final : public std::streambuf {
public:
    explicit CAtomicFileBuf(platform::AtomicFile& file) : m_file(file) { setp(m_buffer, m_buffer + sizeof m_buffer); }

protected:
    int_type overflow(int_type ch) override {
        if (!Drain()) return traits_type::eof();
        if (!traits_type::eq_int_type(ch, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(ch);
            pbump(1);
        }
        return traits_type::not_eof(ch);
    }
    int sync() override { return Drain() ? 0 : -1; }

private:
    bool Drain() {
        size_t n = size_t(pptr() - pbase());
        if (n && !m_file.Write(pbase(), n)) return false;
        setp(m_buffer, m_buffer + sizeof m_buffer);
        return true;
    }

    platform::AtomicFile& m_file;
    char m_buffer[1 << 16];
};

} // namespace

std::string TextWith(std::string_view id, std::string_view fallback, std::initializer_list<std::string> args) {
    std::string t = T(id, fallback);
    size_t from = 0;
    for (const std::string& a : args) {
        size_t at = t.find("%s", from);
        if (at == std::string::npos) break;
        t.replace(at, 2, a);
        from = at + a.size();
    }
    return t;
}

CLI::Validator PathValue(bool dashMeansStdout) {
    return CLI::Validator(
        [dashMeansStdout](std::string& value) -> std::string {
            if (value.empty()) return T("IDS_CLI_EMPTY_PATH", "an empty path");
            if (value == "-" && dashMeansStdout) return {};
            if (value.front() == '-')
                return TextWith("IDS_CLI_LOOKS_LIKE_OPTION",
                                "\"%s\" looks like an option, not a path (write ./%s for a file of that name)",
                                {value, value});
            return {};
        },
        "PATH");
}

CLI::Validator PartitionValue(bool allowAll) {
    return CLI::Validator(
        [allowAll](std::string& value) -> std::string {
            if (allowAll && value == "all") return {};
            bool digits = !value.empty() && value.size() <= 6 && value.find_first_not_of("0123456789") == std::string::npos;
            if (digits && value.find_first_not_of('0') != std::string::npos) return {};
            return allowAll ? Tf("IDS_CLI_NOT_PARTITION_NUMBER_ALL", value,
                                 "\"%s\" is not a partition number (1, 2, ... as `kestrin partitions` lists them, or all)")
                            : Tf("IDS_CLI_NOT_PARTITION_NUMBER", value,
                                 "\"%s\" is not a partition number (1, 2, ... as `kestrin partitions` lists them)");
        },
        allowAll ? "N|all" : "N");
}

void AddSectorSizeOption(CLI::App* sub, uint32_t& value) {
    sub->add_option("--sector-size", value,
                    "Read the source in sectors of N bytes (512, 1024, 2048 or 4096) instead of the size it "
                    "declares")
        ->type_name("N")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                if (text == "512" || text == "1024" || text == "2048" || text == "4096") return {};
                return Tf("IDS_CLI_NOT_SECTOR_SIZE", text, "\"%s\" is not a sector size (512, 1024, 2048 or 4096)");
            },
            "512|1024|2048|4096"));
}

bool CheckPlannedOutputs(const std::vector<PlannedOutput>& outputs,
                         const std::vector<platform::FileIdentity>& sources, bool overwrite) {
    for (const auto& o : outputs) {
        OutputCheck check;
        if (o.kind == PlannedOutput::Kind::Folder) {
            check = CheckOutputFolder(o.path, sources);
            if (check.ok()) {
                // The folder is made after the scan; what it would be made in must take it now.
                std::filesystem::path base = NearestExisting(o.path);
                std::error_code ec;
                if (base.empty() || !std::filesystem::is_directory(base, ec)) {
                    std::fprintf(stderr, "kestrin: %s: %s\n", o.path.c_str(),
                                 Tf("IDS_CLI_NOT_A_FOLDER", base.string(), "%s is not a folder").c_str());
                    return false;
                }
                if (::access(base.c_str(), W_OK | X_OK) != 0) {
                    std::fprintf(stderr, "kestrin: %s: %s\n", base.c_str(), platform::ErrnoText(errno).c_str());
                    return false;
                }
            }
        } else {
            check = CheckOutputFile(o.path, sources, overwrite, o.kind == PlannedOutput::Kind::Device);
        }
        if (!check.ok()) {
            std::fprintf(stderr, "kestrin: %s\n", TextOf(DescribeOutputProblem(check)).c_str());
            return false;
        }
    }
    return true;
}

bool WriteOutputFile(const std::string& path, const std::string& text, bool overwrite) {
    int error = 0;
    if (platform::WriteFileAtomically(path, text.data(), text.size(), overwrite, &error)) return true;
    std::fprintf(stderr, "kestrin: %s: %s\n", path.c_str(), platform::ErrnoText(error).c_str());
    return false;
}

bool WriteOutputStream(const std::string& path, bool overwrite, const std::function<void(std::ostream&)>& write) {
    platform::AtomicFile file;
    bool ok = file.Create(path, overwrite);
    if (ok) {
        auto buffer = std::make_unique<CAtomicFileBuf>(file);
        std::ostream out(buffer.get());
        write(out);
        out.flush();
        ok = out.good() && file.Commit();
    }
    if (ok) return true;
    std::fprintf(stderr, "kestrin: %s: %s\n", path.c_str(), platform::ErrnoText(file.Error() ? file.Error() : EIO).c_str());
    return false;
}

} // namespace kestrin::cli
