#include "app/Startup.h"

#include "app/Language.h"

namespace kestrin::app {

std::string InstanceLockName(const std::string& name) {
    std::string out = name;
    for (char& c : out)
        if (c == '/' || c == '\\' || uint8_t(c) < 0x20) c = '_';
    return out;
}

namespace {

std::string TextOr(const char* id, const char* fallback) {
    std::string t = Text(id);
    return t.empty() ? std::string(fallback) : t;
}

} // namespace

StartupRefusal StartupCheck(platform::InstanceLock& lock) {
    uint32_t code = lock.Acquire(InstanceLockName(kInstanceName));
    if (code == platform::kErrSuccess) return {};
    StartupRefusal r;
    r.refused = true;
    r.otherInstance = code == platform::kErrAlreadyExists;
    r.caption = TextOr("IDS_KESTRIN", "Kestrin");
    // Each text is a sentence of its own; profile values lose surrounding spaces, so the parts
    // are joined here rather than relying on spaces inside the texts.
    std::string retry = TextOr("IDS_RUNNING3", "Please try again.");
    if (r.otherInstance)
        r.message = TextOr("IDS_ALREADY_RUNNING", "Kestrin is already running.") + "\n" +
                    TextOr("IDS_CLOSE_RUNNING_INSTANCES", "Please close every running copy of Kestrin first.") + "\n" + retry;
    else
        r.message = TextOr("IDS_FAILED_TO_LAUNCH", "Kestrin could not be started.") + "\n" + retry;
    return r;
}

} // namespace kestrin::app
