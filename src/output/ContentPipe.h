#pragma once
// One item's content handed to a writer that pulls its data (the zip archive, the disc image):
// the item's content copy runs on a helper thread and passes its bytes through a bounded buffer,
// so no file is ever held in memory whole. A copy that fits the buffer runs at once on the
// reader's thread instead.
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>

#include "fs/Content.h"

namespace kestrin {

class CContentPipe {
public:
    static constexpr size_t kMaxBuffer = 1 << 20;
    static constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

    CContentPipe() = default;
    ~CContentPipe() { Stop(); }
    CContentPipe(const CContentPipe&) = delete;
    CContentPipe& operator=(const CContentPipe&) = delete;

    // Starts copying `node`'s content (a copy already running is stopped first). Bytes past
    // `limit` are not part of the content and are dropped.
    void Start(CPhysicalDisk& media, const CNode& node, ContentWriter content, uint64_t limit = kNoLimit);
    // Up to `len` bytes as soon as there are any; 0 once the copy has ended and all is read.
    size_t ReadSome(uint8_t* out, size_t len);
    // Exactly `len` bytes unless the limit comes first; what the copy did not deliver reads as
    // zeros (for a writer that has announced the full size already).
    size_t ReadFull(uint8_t* out, size_t len);
    // Bytes handed out by the reads since Start.
    uint64_t Delivered() const { return m_delivered; }

    struct Outcome {
        bool ended = false; // the copy has returned
        bool ok = false;    // and said every byte was delivered
        uint64_t received = 0;
    };
    // The copy's outcome so far; with `waitForEnd`, once the copy has returned.
    Outcome Result(bool waitForEnd);
    // Ends the copy (its next write fails) and waits for its thread; frees the buffer.
    void Stop();

private:
    void Produce(CPhysicalDisk& media, const CNode& node, ContentWriter content);
    bool Put(const uint8_t* p, size_t len);

    std::mutex m_lock;
    std::condition_variable m_cv;
    std::unique_ptr<uint8_t[]> m_ring;
    size_t m_size = 0, m_head = 0, m_count = 0;
    uint64_t m_limit = kNoLimit, m_received = 0, m_delivered = 0;
    bool m_ended = false, m_abort = false, m_ok = false;
    std::thread m_producer;
};

} // namespace kestrin
