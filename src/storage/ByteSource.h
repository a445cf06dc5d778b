#pragma once
// Where a media's bytes come from: one file or device, a split image (name.001, name.002, ...)
// or memory (tests and fuzzing). All reads are positioned.
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace kestrin {

class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Bytes read (short only at the end), or -1 on failure with LastError() set.
    virtual long long ReadAt(void* buf, size_t len, uint64_t offset) = 0;
    virtual long long WriteAt(const void*, size_t, uint64_t) { return -1; }
    virtual uint64_t Size() const = 0;
    virtual uint32_t LastError() const { return 0; }
    // ReadAt for a second thread reading at the same time as ReadAt's caller: changes nothing in
    // the source. -1 when the source cannot be read that way or the read failed; the caller then
    // reads through ReadAt, which keeps the failure's code.
    virtual long long ReadAtBeside(void*, size_t, uint64_t) const { return -1; }
    // True when reads must be whole aligned sectors (unbuffered devices).
    virtual bool NeedsAlignment() const { return false; }
    // True when ReadAt and CopyTo may be called from two threads at once: they keep no state
    // between calls (positioned reads of one file). Sources with caches or maps say no.
    virtual bool ConcurrentReads() const { return false; }
    // The first run of data at or after byte `offset`, as [start, end): what lies outside the
    // runs (the holes of a sparse image file) holds nothing but zeros, and need not be read.
    // start is UINT64_MAX when no data follows; end is UINT64_MAX when the run goes on to the
    // end. By default everything is data.
    virtual void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const {
        start = offset;
        end = UINT64_MAX;
    }
    // Copies `len` bytes at `offset` into the open file `to` at `toOffset` without them passing
    // through this process. Bytes copied, fewer when the copy stopped early, or -1 with an errno
    // in `err` (ENOSYS: this source cannot do it). The caller reads and writes what is left.
    virtual long long CopyTo(platform::NativeHandle, uint64_t, size_t, uint64_t, int& err) {
        err = ENOSYS;
        return -1;
    }
};

class FileSource final : public ByteSource {
public:
    explicit FileSource(platform::File f, bool aligned = false) : m_file(std::move(f)), m_aligned(aligned) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override { return m_file.ReadAt(buf, len, offset); }
    long long WriteAt(const void* buf, size_t len, uint64_t offset) override { return m_file.WriteAt(buf, len, offset); }
    uint64_t Size() const override { return m_file.Size(); }
    uint32_t LastError() const override { return m_file.LastError(); }
    // An unbuffered device reads only whole aligned blocks into aligned memory.
    long long ReadAtBeside(void* buf, size_t len, uint64_t offset) const override {
        if (m_aligned && (reinterpret_cast<uintptr_t>(buf) | len | offset) % 4096) return -1;
        return m_file.ReadAtQuietly(buf, len, offset);
    }
    bool NeedsAlignment() const override { return m_aligned; }
    bool ConcurrentReads() const override { return true; }
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const override { m_file.DataRun(offset, start, end); }
    // Only a plain file is copied by the kernel: a device's unbuffered handle takes no part in it.
    long long CopyTo(platform::NativeHandle to, uint64_t toOffset, size_t len, uint64_t offset, int& err) override {
        if (m_aligned || !m_file.IsRegularFile()) return ByteSource::CopyTo(to, toOffset, len, offset, err);
        return m_file.CopyTo(to, toOffset, len, offset, err);
    }

private:
    platform::File m_file;
    bool m_aligned;
};

// name.001, name.002, ... read as one run of bytes.
class SplitFileSource final : public ByteSource {
public:
    // Opens `firstPath` (ending in .001) and every following part that exists.
    static std::unique_ptr<SplitFileSource> Open(const std::string& firstPath, uint32_t& error);
    long long ReadAt(void* buf, size_t len, uint64_t offset) override;
    uint64_t Size() const override { return m_total; }
    uint32_t LastError() const override { return m_lastError; }
    // Each part's own runs; a run never reaches past the end of its part.
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const override;

private:
    struct Part {
        platform::File file;
        uint64_t start, size;
    };
    std::vector<Part> m_parts;
    uint64_t m_total = 0;
    uint32_t m_lastError = 0;
};

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::vector<uint8_t> data) : m_data(std::move(data)) {}
    MemorySource(const uint8_t* p, size_t n) : m_data(p, p + n) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override;
    long long WriteAt(const void* buf, size_t len, uint64_t offset) override;
    uint64_t Size() const override { return m_data.size(); }
    // Byte offsets at which every read fails (tests of read-error handling).
    void FailReadsAt(uint64_t offset, uint64_t len) { m_failStart = offset; m_failLen = len; }
    uint32_t LastError() const override { return m_error; }

private:
    std::vector<uint8_t> m_data;
    uint64_t m_failStart = 0, m_failLen = 0;
    uint32_t m_error = 0;
};

} // namespace kestrin
