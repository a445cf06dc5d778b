#pragma once
// The rows of the signature list: which records a recovery mode lists, and which rows a list of
// extensions ticks (`kestrin scan --types jpg,pdf`).
//
// The category byte of a record says what kind of data it finds; a mode lists the records whose
// category is above the mode's threshold:
//   1 archives, mail stores and other containers     listed by the four file modes
//   2 documents                                      listed by the four file modes
//   3 audio and video                                listed by every mode
//   4 pictures and camera raw images                 listed by every mode
//   5 user-defined signatures without a choice       listed by every mode
// Thresholds: deleted files, lost files, partition recovery and formatted recovery 0; the two
// photo modes 2 (so they list pictures, camera raws, video and audio). 0 and 1 would also hide
// nothing and archives respectively; 3 would list pictures only.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "carve/SignatureRecord.h"
#include "job/ScanOperation.h"

namespace kestrin {

enum SignatureCategory : uint8_t {
    kCategoryContainer = 1,
    kCategoryDocument = 2,
    kCategoryAudioVideo = 3,
    kCategoryPicture = 4,
    kCategoryUserDefault = 5,
};

uint8_t CategoryThreshold(RecoveryMode mode);
bool ListedInMode(const SignatureRecord& record, RecoveryMode mode);
std::vector<SignatureRecord> FilterByMode(const std::vector<SignatureRecord>& records, RecoveryMode mode);

// The records of "slt.dat" in `folder` that `mode` lists, in file order. `problem` (optional)
// receives a description when the file is missing or damaged (what could be read is returned).
std::vector<SignatureRecord> SignaturesForMode(RecoveryMode mode, const std::string& folder, std::string* problem = nullptr);

// "jpg,pdf" or ".JPG, .pdf" → {"jpg", "pdf"}: split at commas, blanks and leading dots dropped.
std::vector<std::string> SplitTypeList(std::string_view list);
// The rows whose extension is one of `extensions` (compared without the dot, ignoring ASCII
// case, so "jpg" ticks both ".jpg" and ".JPG" rows), in row order. Names that tick no row are
// put into `unmatched` when given.
std::vector<SignatureRecord> FilterByExtensions(const std::vector<SignatureRecord>& rows,
                                                const std::vector<std::string>& extensions,
                                                std::vector<std::string>* unmatched = nullptr);

} // namespace kestrin
