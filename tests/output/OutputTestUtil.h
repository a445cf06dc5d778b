#pragma once
// Shared pieces of the output tests: an operation context without a front end, scratch folders,
// message capture and whole-file reads.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include "ScratchDir.h"
#include "job/QuietScanEvents.h"
#include "output/UserMessages.h"
#include "job/ScanContext.h"

namespace kestrin::test {

using NullEvents = QuietScanEvents;

struct TestContext {
    ScanOperation op;
    NullEvents events;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    TestContext() { op.state = OperationState::Running; }
};

struct CapturedMessages final : IUserMessages {
    void Show(const UserMessage& m) override { shown.push_back(m); }
    std::vector<UserMessage> shown;
};

inline std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteAll(const std::string& path, const std::vector<uint8_t>& data) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

} // namespace kestrin::test
