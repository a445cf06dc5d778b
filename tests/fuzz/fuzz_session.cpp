// Recovery session reader over arbitrary bytes: it must refuse or rebuild, never crash, hang or
// allocate beyond what the bytes can describe.
#include <cstddef>
#include <cstdint>

#include "output/SessionFile.h"
#include "storage/ByteSource.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestrin::MemorySource src(data, size);
    kestrin::ReadSessionOptions options;
    options.openSource = false;
    kestrin::SessionData out;
    kestrin::CSilentMessages silent;
    kestrin::ReadSessionFrom(src, options, out, silent);
    return 0;
}
