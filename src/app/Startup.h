#pragma once
// Single-instance check of the desktop program. The command-line tool does not take part: any
// number of them may run at once.
#include <string>

#include "platform/Platform.h"

namespace kestrin::app {

// Name of the instance guard shared by every copy of the desktop program.
inline constexpr const char* kInstanceName = "Kestrin[Windows4.0]";

// What start-up shows when it must stop: an error-icon message box.
struct StartupRefusal {
    std::string caption; // text of "IDS_KESTRIN"
    std::string message;
};

// Takes the instance guard into `lock` (kept by the caller for the life of the program).
// Returns an empty refusal caption when this instance may run; otherwise the message to show
// before ending: another instance already runs, or the guard could not be made. Texts come from
// the current language file, so InitLanguage() should have run.
StartupRefusal StartupCheck(platform::InstanceLock& lock);

// The guard name made safe as a file name: path separators and control characters become "_".
// The lock lives in a file on POSIX systems; brackets and dots are fine there and are kept.
std::string InstanceLockName(const std::string& name);

} // namespace kestrin::app
