#pragma once
// The command-line parser's own words in the chosen language: the help's headings and type names,
// every verb's and option's description, and the messages of a refused command line.
#include <string>

#include <CLI/CLI.hpp>

namespace kestrin::cli {

// Puts the current language's texts on `app` and on every verb below it, once all are added:
// - a verb's description from the id named after its path, the verb names joined with "_"
//   (IDS_CLI_VERB_SIGNATURES_LIST; the program's own is IDS_CLI_VERB_KESTRIN);
// - an option's from the id named after its verb's path and its own name
//   (IDS_CLI_OPTION_SCAN_SESSION), else from the one all verbs share (IDS_CLI_OPTION_ANY_QUIET);
// - the upper-case words of a value's type likewise (IDS_CLI_VALUE_TYPE_TEXT).
// These ids are made from the names, so the help test of every language checks that each one
// has its text.
// A description without a text keeps the one the verb gave. Also sets the headings, type names
// and the failure message (TranslateParseError).
void TranslateCommandLine(CLI::App& app);

// What a refused command line says, in the current language: the parser's sentence with its
// names and values kept, and the advice to ask for --help. A sentence this program does not know
// is passed on as the parser wrote it.
std::string TranslateParseError(const CLI::Error& error);

} // namespace kestrin::cli
