#pragma once
// Writes one found item's content through the engine that found it: carved items as one byte
// range, file-system items by the file-system kind of the media's selected volume.
#include "fs/Content.h"
#include "storage/ByteSource.h"

namespace kestrin {

// The media's own source, read by a second media narrowed to one volume.
class BorrowedSource final : public ByteSource {
public:
    explicit BorrowedSource(ByteSource& base) : m_base(base) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override { return m_base.ReadAt(buf, len, offset); }
    uint64_t Size() const override { return m_base.Size(); }
    uint32_t LastError() const override { return m_base.LastError(); }
    bool NeedsAlignment() const override { return m_base.NeedsAlignment(); }
    bool ConcurrentReads() const override { return m_base.ConcurrentReads(); }
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const override { m_base.DataRun(offset, start, end); }
    long long CopyTo(platform::NativeHandle to, uint64_t toOffset, size_t len, uint64_t offset, int& err) override {
        return m_base.CopyTo(to, toOffset, len, offset, err);
    }

private:
    ByteSource& m_base;
};

// False in `ok` when the engine for this item is not part of this build, a read failed, or the
// content reaches past the end of the source (those bytes count as unreadable).
ContentResult WriteNodeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);

} // namespace kestrin
