#include "app/Startup.h"

#include "app/Language.h"

namespace kestrin::app {

std::string InstanceLockName(const std::string& name) {
    std::string out = name;
    for (char& c : out)
        if (c == '/' || c == '\\' || uint8_t(c) < 0x20) c = '_';
    return out;
}

StartupRefusal StartupCheck(platform::InstanceLock& lock) {
    uint32_t code = lock.Acquire(InstanceLockName(kInstanceName));
    if (code == platform::kErrSuccess) return {};
    StartupRefusal r;
    r.caption = Text("IDS_KESTRIN");
    // Each text is a sentence of its own; profile values lose surrounding spaces, so the parts
    // are joined here rather than relying on spaces inside the texts.
    if (code == platform::kErrAlreadyExists)
        r.message = Text("IDS_ALREADY_RUNNING") + "\n" + Text("IDS_CLOSE_RUNNING_INSTANCES") + "\n" +
                    Text("IDS_RUNNING3");
    else
        r.message = Text("IDS_FAILED_TO_LAUNCH") + "\n" + Text("IDS_RUNNING3");
    return r;
}

} // namespace kestrin::app
