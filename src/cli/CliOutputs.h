#pragma once
// What the command line checks before any work starts: option values that are really the next
// option, partition numbers, and every output path against the source (never the source, never
// on the source device, never an existing file without --overwrite, never in a missing folder).
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "output/OutputGuard.h"

namespace kestrin::cli {

// The language text of `id` with each "%s" replaced by the next of `args`, in order (numbers and
// paths stay out of the text ids).
std::string TextWith(std::string_view id, std::string_view fallback, std::initializer_list<std::string> args);

// A file or folder value: refuses a value that looks like an option ("--json --quiet" would
// otherwise write a file named "--quiet"). `dashMeansStdout` lets "-" through.
CLI::Validator PathValue(bool dashMeansStdout = false);
// "", "all" (when allowed) or a partition number from 1.
CLI::Validator PartitionValue(bool allowAll);
// Registers --sector-size N (512, 1024, 2048 or 4096) on `sub`; `value` stays 0 when it is not
// given, which lets the source decide.
void AddSectorSizeOption(CLI::App* sub, uint32_t& value);

struct PlannedOutput {
    enum class Kind { File, Folder, Device } kind = Kind::File;
    std::string path;
};

// Checks every planned output against the source identities; prints why on standard error
// ("kestrin: PATH: ...") and returns false at the first refusal.
bool CheckPlannedOutputs(const std::vector<PlannedOutput>& outputs,
                         const std::vector<platform::FileIdentity>& sources, bool overwrite);

// Writes `text` to `path` under a temporary name and moves it into place when complete
// (replacing an existing file only with `overwrite`). Prints why on failure.
bool WriteOutputFile(const std::string& path, const std::string& text, bool overwrite);
// The same for output made piece by piece: `write` fills the stream, which goes to the temporary
// in large writes as it comes, so the whole text is never held in memory.
bool WriteOutputStream(const std::string& path, bool overwrite, const std::function<void(std::ostream&)>& write);

} // namespace kestrin::cli
