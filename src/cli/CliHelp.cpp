#include "cli/CliHelp.h"

#include <cctype>
#include <memory>
#include <regex>
#include <string_view>

#include "app/Language.h"
#include "cli/CliOutputs.h"
#include "session/Texts.h"

namespace kestrin::cli {

namespace {

// "signatures list" -> "SIGNATURES_LIST"; "--sector-size" -> "SECTOR_SIZE".
std::string IdPart(std::string_view name) {
    while (!name.empty() && name.front() == '-') name.remove_prefix(1);
    std::string id;
    for (char c : name) id += std::isalnum(static_cast<unsigned char>(c)) ? char(std::toupper(static_cast<unsigned char>(c))) : '_';
    return id;
}

std::string VerbPath(const CLI::App& app) {
    std::string path;
    for (const CLI::App* a = &app; a && a->get_parent(); a = a->get_parent())
        path = IdPart(a->get_name()) + (path.empty() ? "" : "_" + path);
    return path.empty() ? "KESTRIN" : path;
}

// The text id of a verb's, an option's or a type word's help: the group's id head ("VERB",
// "OPTION", "OPTION_ANY", "VALUE_TYPE") followed by `name`.
std::string TextId(std::string_view group, std::string_view name) {
    return std::string("IDS") + "_CLI_" + std::string(group) + "_" + std::string(name);
}

// The language file's text, or empty when it has none (the caller keeps what it had).
std::string Translation(const std::string& id) {
    std::string t = app::Text(id);
    if (t.size() >= 2 && t.front() == '"' && t.back() == '"') t = t.substr(1, t.size() - 2);
    // A language file's line holds one line of text; "\n" in it starts another.
    for (size_t at; (at = t.find("\\n")) != std::string::npos;) t.replace(at, 2, "\n");
    return t;
}

// A heading or group name: an empty one would hide what it heads, so a missing text keeps the
// parser's word.
std::string Word(const std::string& id, const char* fallback) {
    std::string t = Translation(id);
    return t.empty() ? std::string(fallback) : t;
}

// Each upper-case word of a type name ("TEXT:N|all") in the language, the rest as it stands.
std::string TypeName(const std::string& name) {
    std::string out, word;
    auto flush = [&] {
        if (word.empty()) return;
        std::string t = Translation(TextId("VALUE_TYPE", word));
        out += t.empty() ? word : t;
        word.clear();
    };
    for (char c : name) {
        if (std::isupper(static_cast<unsigned char>(c))) {
            word += c;
            continue;
        }
        flush();
        out += c;
    }
    flush();
    return out;
}

void TranslateVerb(CLI::App& app, const std::shared_ptr<CLI::Formatter>& formatter) {
    const std::string path = VerbPath(app);
    if (std::string t = Translation(TextId("VERB", path)); !t.empty()) app.description(t);
    const std::string optionsGroup = Word("IDS_CLI_HEADING_OPTIONS", "Options");
    for (CLI::Option* opt : app.get_options()) {
        const std::string name = IdPart(opt->get_name(false, false));
        std::string t = Translation(TextId("OPTION", path + "_" + name));
        if (t.empty()) t = Translation(TextId("OPTION_ANY", name));
        if (!t.empty()) opt->description(t);
        if (opt->get_group() == "Options") opt->group(optionsGroup);
        const std::string type = opt->get_type_name();
        if (!type.empty()) formatter->label(type, TypeName(type));
    }
    app.formatter(formatter);
    for (CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; })) {
        if (sub->get_group() == "Subcommands") sub->group(Word("IDS_CLI_HEADING_COMMANDS", "Commands"));
        TranslateVerb(*sub, formatter);
    }
}

struct ErrorPattern {
    const char* pattern; // the parser's English sentence, its names and values captured
    const char* id;
    const char* fallback; // "%s" for each capture, in order
};

// The sentences of the parser this program can meet (CLI11 2.x wording).
const ErrorPattern kErrorPatterns[] = {
    {"^A subcommand is required$", "IDS_CLI_ERR_COMMAND_REQUIRED", "a command is required"},
    {"^(.+) is required$", "IDS_CLI_ERR_REQUIRED", "%s is required"},
    {"^(.+): [0-9]+ required .* missing$", "IDS_CLI_ERR_VALUE_MISSING", "%s needs a value"},
    {"^The following arguments? (?:was|were) not expected: (.*)$", "IDS_CLI_ERR_NOT_EXPECTED",
     "unexpected argument: %s"},
    {"^Expected (?:exactly|at least) ([0-9]+) arguments? to (.+), got ([0-9]+)$", "IDS_CLI_ERR_ARGUMENT_COUNT",
     "%s value(s) expected for %s, %s given"},
    {"^(.+) requires (.+)$", "IDS_CLI_ERR_REQUIRES", "%s needs %s"},
    {"^(.+) excludes (.+)$", "IDS_CLI_ERR_EXCLUDES", "%s cannot be used with %s"},
    {"^Could not convert: (.+) = (.*)$", "IDS_CLI_ERR_CONVERT", "%s: \"%s\" is not a value it takes"},
    {"^The value (.+) is not an allowed value for (.+)$", "IDS_CLI_ERR_NOT_ALLOWED", "\"%s\" is not a value %s takes"},
    {"^(.+): (?:Should be true/false or a number|too many inputs for a flag)$", "IDS_CLI_ERR_FLAG_VALUE",
     "%s takes no value"},
};

} // namespace

std::string TranslateParseError(const CLI::Error& error) {
    const std::string what = error.what();
    std::string sentence = what;
    for (const ErrorPattern& p : kErrorPatterns) {
        std::smatch m;
        if (!std::regex_match(what, m, std::regex(p.pattern))) continue;
        std::string t = T(p.id, p.fallback);
        size_t from = 0;
        for (size_t i = 1; i < m.size(); ++i) {
            size_t at = t.find("%s", from);
            if (at == std::string::npos) break;
            t.replace(at, 2, m[i].str());
            from = at + m[i].length();
        }
        sentence = t;
        break;
    }
    return "kestrin: " + sentence + "\n" + TextWith("IDS_CLI_ERR_SEE_HELP", "Run with %s for more information.", {"--help"}) + "\n";
}

void TranslateCommandLine(CLI::App& app) {
    auto formatter = std::make_shared<CLI::Formatter>();
    const struct {
        const char* key;
        const char* id;
    } labels[] = {
        {"Usage", "IDS_CLI_HEADING_USAGE"},         {"OPTIONS", "IDS_CLI_HEADING_OPTIONS_WORD"},
        {"SUBCOMMAND", "IDS_CLI_HEADING_COMMAND"}, {"SUBCOMMANDS", "IDS_CLI_HEADING_COMMAND"},
        {"Positionals", "IDS_CLI_HEADING_ARGUMENTS"}, {"REQUIRED", "IDS_CLI_HEADING_REQUIRED"},
        {"Needs", "IDS_CLI_HEADING_NEEDS"},         {"Excludes", "IDS_CLI_HEADING_EXCLUDES"},
    };
    for (const auto& l : labels) formatter->label(l.key, Word(l.id, l.key));
    TranslateVerb(app, formatter);
    app.failure_message([](const CLI::App*, const CLI::Error& e) { return TranslateParseError(e); });
}

} // namespace kestrin::cli
