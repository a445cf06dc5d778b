#pragma once
// The readable source of the shipped signature table (data/signatures.txt): one record per line,
//   type id | extension | header hex | header offset | second value | fixed size | description | category
// with blank lines and lines starting with '#' ignored. The build turns it into slt.dat.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "carve/SignatureRecord.h"

namespace kestrin {

// Strict: any malformed line fails the whole table, with the line number in `error`.
std::optional<std::vector<SignatureRecord>> ParseSignatureTable(std::string_view text, std::string* error = nullptr);
// Reads and parses the file at `path`.
std::optional<std::vector<SignatureRecord>> LoadSignatureTable(const std::string& path, std::string* error = nullptr);

} // namespace kestrin
