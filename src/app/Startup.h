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
    bool refused = false;
    bool otherInstance = false; // refused because another instance holds the guard
    std::string caption;        // text of "IDS_KESTRIN"
    std::string message;
};

// Takes the instance guard into `lock` (kept by the caller for the life of the program).
// `refused` is false when this instance may run; otherwise the result holds the message to show
// before ending: another instance already runs, or the guard could not be made. Texts come from
// the current language file, so InitLanguage() should have run; without one (a missing or
// incomplete language file) the refusal stands with English texts.
StartupRefusal StartupCheck(platform::InstanceLock& lock);

// The guard name made safe as a file name: path separators and control characters become "_".
// The lock lives in a file on POSIX systems; brackets and dots are fine there and are kept.
std::string InstanceLockName(const std::string& name);

} // namespace kestrin::app
