#pragma once
// `kestrin drives`: the disks and volumes of this machine, as the drive-selection page lists them.
#include "cli/Verbs.h"

namespace kestrin::cli {

void AddDrivesVerb(CLI::App& app, VerbResult& result);

} // namespace kestrin::cli
