// kestrin signatures: the signature list of slt.dat in the configuration folder: list (all rows or the
// rows a recovery mode shows), add, edit and delete user-defined file types.
#include <cinttypes>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <string>

#include "app/Language.h"
#include "carve/SignatureFile.h"
#include "carve/SignatureList.h"
#include "cli/CliJson.h"
#include "cli/CliScan.h"
#include "session/Texts.h"
#include "cli/Verbs.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

struct SignatureOptions {
    std::string folder;
    std::string mode;
    bool json = false;
    std::string row; // as typed: "abc" must get its own message, not CLI11's
    std::string header, ext, offset, size, unit, description, type, category;
};

// The add dialog's type list: the item data of each entry is the record's second value.
constexpr const char* kTypeNames[] = {"picture", "raw", "audio", "video", "document", "archive", "other"};

std::string Folder(const SignatureOptions& o) {
    return o.folder.empty() ? app::CurrentPaths().configFolder : o.folder;
}

std::string Hex(const std::vector<uint8_t>& b) {
    std::string s;
    char buf[4];
    for (uint8_t v : b) {
        std::snprintf(buf, sizeof buf, "%02X", v);
        s += buf;
    }
    return s;
}

// Says on stderr what is wrong with a missing or damaged file.
void ReportLoad(const std::string& folder, const SignatureLoad& load) {
    switch (load.status) {
    case SignatureLoadStatus::kOk: break;
    case SignatureLoadStatus::kMissing:
        std::fprintf(stderr, "kestrin: %s/%s: %s\n", folder.c_str(), kSignatureFileName, load.systemText.c_str());
        break;
    case SignatureLoadStatus::kBadMagic:
        std::fprintf(stderr, "kestrin: %s\n",
                     Tf("IDS_SIG_FILE_NOT_SIGNATURES", folder + "/" + kSignatureFileName,
                        "%s is not a signature file; no file types were loaded.").c_str());
        break;
    case SignatureLoadStatus::kShortRead:
        std::fprintf(stderr, "%s\n", load.systemText.c_str());
        std::fprintf(stderr, "kestrin: %s\n",
                     Tf("IDS_SIG_FILE_DAMAGED",
                        std::to_string(load.records.size()) + "/" + std::to_string(load.declaredCount),
                        "The signature file ends early; file types loaded:").c_str());
        break;
    }
}

// Loads the list for reading; what could be read is used.
std::vector<SignatureRecord> Load(const std::string& folder, bool& missing) {
    SignatureLoad load = LoadSignatureFile(folder);
    missing = load.status == SignatureLoadStatus::kMissing;
    ReportLoad(folder, load);
    return std::move(load.records);
}

bool ParseType(const std::string& text, uint32_t& value) {
    if (text.empty()) return true;
    for (uint32_t i = 0; i < std::size(kTypeNames); ++i)
        if (EqualsNoCase(text, kTypeNames[i])) {
            value = i + 1;
            return true;
        }
    if (text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9) return false;
    value = uint32_t(std::stoul(text));
    return true;
}

// --unit: kb is the first entry of the add dialog's list, mb any other; the edit dialog's
// unit is bytes.
bool ParseUnit(const std::string& text, int& index) {
    if (text.empty() || EqualsNoCase(text, "kb")) index = 0;
    else if (EqualsNoCase(text, "mb")) index = 1;
    else if (EqualsNoCase(text, "byte") || EqualsNoCase(text, "bytes")) index = -1;
    else return false;
    return true;
}

int Usage(const std::string& what) {
    std::fprintf(stderr, "kestrin: %s\n", what.c_str());
    return kExitUsage;
}

// `text` with each "%s" replaced by the next of `args`.
std::string Fill(std::string text, std::initializer_list<std::string> args) {
    size_t at = 0;
    for (const std::string& a : args) {
        at = text.find("%s", at);
        if (at == std::string::npos) break;
        text.replace(at, 2, a);
        at += a.size();
    }
    return text;
}

// The option that holds `field`, for messages that name it.
const char* OptionName(SignatureField field) {
    switch (field) {
    case SignatureField::kSize: return "--size";
    case SignatureField::kHeader: return "--header";
    case SignatureField::kExtension: return "--ext";
    case SignatureField::kOffset: return "--offset";
    case SignatureField::kDescription: return "--description";
    case SignatureField::kNone: break;
    }
    return "";
}

int RejectFields(const SignatureCheck& check) {
    return Usage(std::string(OptionName(check.field)) + ": " + T(SignatureProblemTextId(check.problem)));
}

// The fields as typed; for edit, the fields not given keep the record's values.
bool Fields(const SignatureOptions& o, const SignatureRecord* base, SignatureFields& f, int& rc) {
    f.header = o.header;
    f.extension = o.ext;
    f.offset = o.offset;
    f.size = o.size;
    f.description = o.description;
    if (!ParseUnit(o.unit, f.unitIndex)) {
        rc = Usage(base ? T("IDS_CLI_UNIT_OR_BYTE", "--unit: kb or mb (or byte)") : T("IDS_CLI_UNIT", "--unit: kb or mb"));
        return false;
    }
    if (base) {
        if (o.header.empty()) f.header = Hex(base->header);
        if (o.ext.empty()) f.extension = base->extension;
        if (o.offset.empty()) f.offset = std::to_string(base->headerOffset);
        if (o.description.empty()) f.description = base->description;
        if (o.size.empty()) {
            f.size = std::to_string(base->fixedSize);
            f.unitIndex = -1;
        }
        f.secondValue = base->secondValue;
        f.category = base->category;
    }
    if (!ParseType(o.type, f.secondValue)) {
        rc = Usage(T("IDS_CLI_TYPE_VALUES", "--type: picture, raw, audio, video, document, archive, other or a number"));
        return false;
    }
    if (!o.category.empty()) {
        if (o.category.find_first_not_of("0123456789") != std::string::npos || o.category.size() > 3 ||
            std::stoul(o.category) < 1 || std::stoul(o.category) > 255) {
            rc = Usage(T("IDS_CLI_CATEGORY_VALUES", "--category: 1 to 255"));
            return false;
        }
        f.category = uint8_t(std::stoul(o.category));
    }
    return true;
}

int RunList(const SignatureOptions& o) {
    bool missing;
    std::vector<SignatureRecord> rows = Load(Folder(o), missing);
    std::optional<RecoveryMode> mode;
    if (!o.mode.empty() && !(mode = ParseMode(o.mode)))
        return Usage(Tf("IDS_CLI_UNKNOWN_MODE", o.mode,
                        "unknown mode \"%s\" (deleted-files, lost-files, partition, formatted, "
                        "deleted-photos, lost-photos, or 1019-1022, 1037, 1038)"));
    if (o.json) std::printf("[");
    bool first = true;
    if (!o.json)
        std::printf("%4s %6s %-6s %-34s %6s %10s %3s %4s  %s\n", "#", T("IDS_CLI_COL_TYPE", "TYPE").c_str(),
                    T("IDS_CLI_COL_EXT", "EXT").c_str(), T("IDS_CLI_COL_HEADER", "HEADER").c_str(),
                    T("IDS_CLI_COL_OFFSET", "OFFSET").c_str(), T("IDS_CLI_COL_SIZE", "SIZE").c_str(),
                    T("IDS_CLI_COL_CAT", "CAT").c_str(), T("IDS_CLI_COL_USER", "USER").c_str(),
                    T("IDS_CLI_COL_DESCRIPTION", "DESCRIPTION").c_str());
    const std::string yes = T("IDS_CLI_YES", "yes");
    for (size_t i = 0; i < rows.size(); ++i) {
        const SignatureRecord& r = rows[i];
        if (mode && !ListedInMode(r, *mode)) continue;
        if (o.json) {
            std::printf("%s\n {\"row\": %zu, \"typeId\": %" PRIu32 ", \"extension\": %s, \"header\": \"%s\", "
                        "\"headerOffset\": %" PRIu32 ", \"secondValue\": %" PRIu32 ", \"fixedSize\": %" PRIu64
                        ", \"description\": %s, \"userDefined\": %" PRIu32 ", \"category\": %u}",
                        first ? "" : ",", i + 1, r.typeId, JsonString(r.extension).c_str(), Hex(r.header).c_str(),
                        r.headerOffset, r.secondValue, r.fixedSize, JsonString(r.description).c_str(),
                        r.userDefined, unsigned(r.category));
        } else {
            std::string hex = Hex(r.header);
            if (hex.size() > 34) hex = hex.substr(0, 31) + "...";
            std::printf("%4zu %6" PRIu32 " %-6s %-34s %6" PRIu32 " %10" PRIu64 " %3u %4s  %s\n", i + 1, r.typeId,
                        r.extension.c_str(), hex.c_str(), r.headerOffset, r.fixedSize, unsigned(r.category),
                        r.userDefined == 1 ? yes.c_str() : "", r.description.c_str());
        }
        first = false;
    }
    if (o.json) std::printf("\n]\n");
    return missing ? kExitUsage : kExitOk;
}

int Save(const std::string& folder, const std::vector<SignatureRecord>& rows, const char* failedId) {
    if (SaveSignatureFile(folder, rows) != SignatureSaveStatus::kSaved) {
        std::fprintf(stderr, "kestrin: %s\n", T(failedId, "The file type could not be saved.").c_str());
        return kExitUsage;
    }
    return kExitOk;
}

// Loads the list for a change. A file that could not be read in full is refused: saving what was
// read would drop the rows that were not.
bool LoadForChange(const std::string& folder, std::vector<SignatureRecord>& rows) {
    SignatureLoad load = LoadSignatureFile(folder);
    if (load.status == SignatureLoadStatus::kOk) {
        rows = std::move(load.records);
        return true;
    }
    ReportLoad(folder, load);
    std::fprintf(stderr, "kestrin: %s\n", T("IDS_SIG_NOT_CHANGED").c_str());
    return false;
}

int RunAdd(const SignatureOptions& o) {
    std::string folder = Folder(o);
    std::vector<SignatureRecord> rows;
    SignatureFields f;
    int rc = kExitOk;
    if (!Fields(o, nullptr, f, rc)) return rc;
    // The fields are checked before the file is even read, so a typing error says only that.
    SignatureCheck check = ValidateUserSignature(f);
    if (!check.Ok()) return RejectFields(check);
    if (!LoadForChange(folder, rows)) return kExitUsage;
    if (AddUserSignature(rows, f, &check) != SignatureEditResult::kDone) return RejectFields(check);
    if ((rc = Save(folder, rows, "IDS_UNABLE_TO_SAVE")) != kExitOk) return rc;
    std::printf("%s\n", Tf("IDS_SIG_ADDED", std::to_string(rows.back().typeId), "The file type was added with type id %s.").c_str());
    return kExitOk;
}

// The index of the user-defined row that ID names; false, with the reason on stderr, for an ID
// that names no row or a shipped row. `edit` picks the wording (edited or deleted).
bool UserRowIndex(const SignatureOptions& o, const std::vector<SignatureRecord>& rows, bool edit, size_t& index) {
    auto row = ParseUnsignedDecimal(o.row, rows.size());
    if (!row || *row == 0) {
        std::string text = rows.empty() ? Fill(T("IDS_SIG_NO_ROW_EMPTY"), {o.row})
                                        : Fill(T("IDS_SIG_NO_ROW"), {o.row, "1-" + std::to_string(rows.size())});
        std::fprintf(stderr, "kestrin: %s\n", text.c_str());
        return false;
    }
    index = size_t(*row - 1);
    if (rows[index].userDefined != 1) {
        std::string text = Fill(T(edit ? "IDS_SIG_SHIPPED_EDIT" : "IDS_SIG_SHIPPED_DELETE"), {std::to_string(*row)});
        std::fprintf(stderr, "kestrin: %s\n", text.c_str());
        return false;
    }
    return true;
}

int RunEdit(const SignatureOptions& o) {
    std::string folder = Folder(o);
    std::vector<SignatureRecord> rows;
    size_t index;
    if (!LoadForChange(folder, rows) || !UserRowIndex(o, rows, true, index)) return kExitUsage;
    SignatureFields f;
    int rc = kExitOk;
    if (!Fields(o, &rows[index], f, rc)) return rc;
    SignatureCheck check;
    if (EditUserSignature(rows, index, f, &check) != SignatureEditResult::kDone) return RejectFields(check);
    if ((rc = Save(folder, rows, "IDS_UNABLE_TO_SAVE")) != kExitOk) return rc;
    std::printf("%s\n", T("IDS_SIG_SAVED", "The file type was saved.").c_str());
    return kExitOk;
}

int RunDelete(const SignatureOptions& o) {
    std::string folder = Folder(o);
    std::vector<SignatureRecord> rows;
    size_t index;
    if (!LoadForChange(folder, rows) || !UserRowIndex(o, rows, false, index)) return kExitUsage;
    if (DeleteUserSignature(rows, index) != SignatureEditResult::kDone) {
        std::fprintf(stderr, "kestrin: %s\n", T("IDS_DELETION_FAILED").c_str());
        return kExitUsage;
    }
    if (int rc = Save(folder, rows, "IDS_FAILED_TO_SAVE"); rc != kExitOk) return rc;
    std::printf("%s\n", T("IDS_DEL_SUCCESSFUL").c_str());
    return kExitOk;
}

void AddFieldOptions(CLI::App* sub, SignatureOptions& o, bool required) {
    auto opt = [&](const char* name, std::string& v, const char* help) {
        auto* x = sub->add_option(name, v, help);
        if (required) x->required();
    };
    opt("--header", o.header, "File signature in hex (FFD8FF)");
    opt("--ext", o.ext, "Extension of the carved files (jpg or .jpg)");
    opt("--offset", o.offset, "Offset of the signature in the file's first sector");
    opt("--size", o.size, "Size given to every file found");
    sub->add_option("--unit", o.unit, required ? "Unit of --size: kb (default) or mb" : "Unit of --size: kb, mb or byte");
    opt("--description", o.description, "Description shown in the list");
    sub->add_option("--type", o.type, "Type group: picture, raw, audio, video, document, archive, other (or a number)");
    sub->add_option("--category", o.category,
                    "Which modes list it: 1 containers, 2 documents (file modes), 3 audio/video, 4 pictures, "
                    "5 every mode (default)");
}

} // namespace

void AddSignaturesVerb(CLI::App& app, VerbResult& result) {
    auto o = std::make_shared<SignatureOptions>();
    auto* verb = app.add_subcommand("signatures", "List, add, edit and delete the file types of the signature scan");
    verb->require_subcommand(1);
    verb->add_option("--folder", o->folder, "Folder holding slt.dat (default: the program folder, or the user's configuration folder when the program folder is read-only)");

    auto* list = verb->add_subcommand("list", "List the file types (all, or those a recovery mode searches)");
    list->add_option("--mode", o->mode, "deleted-files, lost-files, partition, formatted, deleted-photos, lost-photos");
    list->add_flag("--json", o->json, "JSON output");
    list->callback([o, &result] { result.exitCode = RunList(*o); });

    auto* add = verb->add_subcommand("add", "Add a user-defined file type");
    AddFieldOptions(add, *o, true);
    add->callback([o, &result] { result.exitCode = RunAdd(*o); });

    auto* edit = verb->add_subcommand("edit", "Change a user-defined file type (row number as listed)");
    edit->add_option("ID", o->row, "Row number as `kestrin signatures list` shows it")->required();
    AddFieldOptions(edit, *o, false);
    edit->callback([o, &result] { result.exitCode = RunEdit(*o); });

    auto* del = verb->add_subcommand("delete", "Delete a user-defined file type (row number as listed)");
    del->add_option("ID", o->row, "Row number as `kestrin signatures list` shows it")->required();
    del->callback([o, &result] { result.exitCode = RunDelete(*o); });
}

} // namespace kestrin::cli
