#include "carve/SignatureList.h"

#include "carve/SignatureFile.h"
#include "job/ScanOperation.h"
#include "util/Text.h"

namespace kestrin {

uint8_t CategoryThreshold(RecoveryMode mode) {
    return mode == RecoveryMode::DeletedPhotos || mode == RecoveryMode::LostPhotos ? 2 : 0;
}

bool ListedInMode(const SignatureRecord& record, RecoveryMode mode) { return record.category > CategoryThreshold(mode); }

std::vector<SignatureRecord> FilterByMode(const std::vector<SignatureRecord>& records, RecoveryMode mode) {
    std::vector<SignatureRecord> kept;
    for (const SignatureRecord& r : records)
        if (ListedInMode(r, mode)) kept.push_back(r);
    return kept;
}

std::vector<SignatureRecord> SignaturesForMode(RecoveryMode mode, const std::string& folder, std::string* problem) {
    SignatureLoad load = LoadSignatureFile(folder);
    if (problem) {
        switch (load.status) {
        case SignatureLoadStatus::kOk: problem->clear(); break;
        case SignatureLoadStatus::kMissing: *problem = folder + "/slt.dat: " + load.systemText; break;
        case SignatureLoadStatus::kBadMagic: *problem = folder + "/slt.dat is not a signature file"; break;
        case SignatureLoadStatus::kShortRead:
            *problem = folder + "/slt.dat ends early: " + std::to_string(load.records.size()) + " of " +
                       std::to_string(load.declaredCount) + " records read (" + load.systemText + ")";
            break;
        }
    }
    return FilterByMode(load.records, mode);
}

std::vector<std::string> SplitTypeList(std::string_view list) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        if (comma == std::string_view::npos) comma = list.size();
        std::string_view item = list.substr(start, comma - start);
        while (!item.empty() && (item.front() == ' ' || item.front() == '.')) item.remove_prefix(1);
        while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
        if (!item.empty()) out.emplace_back(item);
        start = comma + 1;
    }
    return out;
}

std::vector<SignatureRecord> FilterByExtensions(const std::vector<SignatureRecord>& rows,
                                                const std::vector<std::string>& extensions,
                                                std::vector<std::string>* unmatched) {
    std::vector<SignatureRecord> kept;
    std::vector<bool> used(extensions.size(), false);
    for (const SignatureRecord& r : rows) {
        std::string_view ext = r.extension;
        if (!ext.empty() && ext.front() == '.') ext.remove_prefix(1);
        bool take = false;
        for (size_t i = 0; i < extensions.size(); ++i) {
            std::string_view want = extensions[i];
            if (!want.empty() && want.front() == '.') want.remove_prefix(1);
            if (EqualsNoCase(ext, want)) take = used[i] = true;
        }
        if (take) kept.push_back(r);
    }
    if (unmatched)
        for (size_t i = 0; i < extensions.size(); ++i)
            if (!used[i]) unmatched->push_back(extensions[i]);
    return kept;
}

} // namespace kestrin
