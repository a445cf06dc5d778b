#pragma once
// Content read-back: every engine writes one found file's bytes to a sink, so the saver,
// `kestrin cat` and the preview share one path.
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace kestrin {

class ByteSource;
class CPhysicalDisk;
class CNode;

// Receives the content in order; returns false to stop (write failed). A sink that writes into a
// file may also take a run of the content by its place on the source (CopyRun): the kernel then
// moves it from file to file without it passing through this process. A sink that wants to know
// where the content lies (a report's byte runs) is offered every run, whatever its length.
class ContentSink {
public:
    using WriteFn = std::function<bool(const uint8_t* data, size_t len)>;
    enum class Copy : uint8_t {
        Done,    // the run is the content's next bytes now
        NotDone, // nothing changed: the caller reads and writes the run itself
        Stop,    // copied, but the sink wants no more (a cancel)
    };
    using CopyFn = std::function<Copy(ByteSource& source, uint64_t offset, size_t len)>;

    ContentSink() = default;
    template <class F>
        requires(!std::same_as<std::remove_cvref_t<F>, ContentSink> && std::constructible_from<WriteFn, F>)
    ContentSink(F&& write) : m_write(std::forward<F>(write)) {}
    ContentSink(WriteFn write, CopyFn copy, bool everyRun = false)
        : m_write(std::move(write)), m_copy(std::move(copy)), m_everyRun(everyRun) {}

    bool operator()(const uint8_t* data, size_t len) const { return m_write(data, len); }
    explicit operator bool() const { return bool(m_write); }
    bool CanCopy() const { return bool(m_copy); }
    // Offered runs of any length, not only those worth a copy by the kernel.
    bool WantsEveryRun() const { return m_everyRun && m_copy; }
    // `len` bytes at byte `offset` of `source`, as the next bytes of the content.
    Copy CopyRun(ByteSource& source, uint64_t offset, size_t len) const {
        return m_copy ? m_copy(source, offset, len) : Copy::NotDone;
    }

private:
    WriteFn m_write;
    CopyFn m_copy;
    bool m_everyRun = false;
};

struct ContentResult {
    bool ok = false;             // every byte of `size` was delivered
    uint64_t written = 0;        // bytes handed to the sink
    uint64_t unreadable = 0;     // bytes that could not be read (zeros were written in their place)
    uint64_t beyondVolume = 0;   // bytes whose clusters lie past the volume's end (not written)
};

// Offers `len` bytes at absolute byte `offset` of the media's source to the sink as a copy by the
// kernel. NotDone (nothing happened) when the sink or the source cannot copy, when the range is
// short (under 64 KiB, unless the sink wants every run) or reaches past the source's end, or when
// the copy failed: the caller then reads and writes the bytes, so unreadable and missing bytes
// are found and counted by reading.
ContentSink::Copy CopySourceRun(CPhysicalDisk& media, const ContentSink& sink, uint64_t offset, size_t len);

// Each engine provides one of these (NTFS, FAT, exFAT, carved) for the media's selected volume.
using ContentWriter = ContentResult (*)(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);

} // namespace kestrin
