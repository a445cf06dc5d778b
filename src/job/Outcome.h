#pragma once
// How an engine's walk ended. Engines return one of these and never write the operation state:
// the driver alone turns outcomes into states, stages and messages.
#include <cstdint>

namespace kestrin {

enum class Outcome : uint8_t {
    Ok,         // walked to the end
    Corrupt,    // walked to the end, skipping structures that were malformed
    ReadFailed, // walked to the end, but some reads failed (what they held is missing)
    DeviceGone, // the source went away: the walk stopped at the first read that said so
    Stopped,    // the user confirmed a stop
};

// The outcome that says more: a stop over a vanished device over failed reads over corruption.
constexpr Outcome Worse(Outcome a, Outcome b) { return uint8_t(a) >= uint8_t(b) ? a : b; }

// Whether the operation must end here (nothing after this stage may run).
constexpr bool Ends(Outcome o) { return o == Outcome::DeviceGone || o == Outcome::Stopped; }

// Lower-case name for logs and tests.
constexpr const char* OutcomeName(Outcome o) {
    switch (o) {
    case Outcome::Ok: return "ok";
    case Outcome::Corrupt: return "corrupt";
    case Outcome::ReadFailed: return "read-failed";
    case Outcome::DeviceGone: return "device-gone";
    case Outcome::Stopped: return "stopped";
    }
    return "?";
}

} // namespace kestrin
