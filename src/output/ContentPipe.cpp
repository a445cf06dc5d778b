#include "output/ContentPipe.h"

#include <algorithm>
#include <cstring>

namespace kestrin {

void CContentPipe::Start(CPhysicalDisk& media, const CNode& node, ContentWriter content, uint64_t limit) {
    Stop();
    m_size = size_t(std::clamp<uint64_t>(limit, 1, kMaxBuffer));
    m_ring.reset(new uint8_t[m_size]);
    m_head = m_count = 0;
    m_limit = limit;
    m_received = m_delivered = 0;
    m_ended = m_abort = m_ok = false;
    if (limit <= kMaxBuffer)
        Produce(media, node, content);
    else
        m_producer = std::thread([this, &media, &node, content] { Produce(media, node, content); });
}

void CContentPipe::Produce(CPhysicalDisk& media, const CNode& node, ContentWriter content) {
    ContentSink sink = [this](const uint8_t* p, size_t len) { return Put(p, len); };
    ContentResult r = content ? content(media, node, sink) : ContentResult{};
    std::lock_guard lk(m_lock);
    m_ok = r.ok;
    m_ended = true;
    m_cv.notify_all();
}

bool CContentPipe::Put(const uint8_t* p, size_t len) {
    std::unique_lock lk(m_lock);
    len = size_t(std::min<uint64_t>(len, m_limit - std::min(m_limit, m_received)));
    while (len) {
        m_cv.wait(lk, [&] { return m_count < m_size || m_abort; });
        if (m_abort) return false;
        size_t tail = (m_head + m_count) % m_size;
        size_t n = std::min({len, m_size - m_count, m_size - tail});
        std::memcpy(m_ring.get() + tail, p, n);
        m_count += n;
        m_received += n;
        p += n;
        len -= n;
        m_cv.notify_all();
    }
    return true;
}

size_t CContentPipe::ReadSome(uint8_t* out, size_t len) {
    std::unique_lock lk(m_lock);
    if (!m_ring) return 0;
    m_cv.wait(lk, [&] { return m_count > 0 || m_ended; });
    size_t n = std::min({len, m_count, m_size - m_head});
    std::memcpy(out, m_ring.get() + m_head, n);
    m_head = (m_head + n) % m_size;
    m_count -= n;
    m_delivered += n;
    m_cv.notify_all();
    return n;
}

size_t CContentPipe::ReadFull(uint8_t* out, size_t len) {
    std::unique_lock lk(m_lock);
    if (!m_ring) return 0;
    len = size_t(std::min<uint64_t>(len, m_limit - m_delivered));
    size_t done = 0;
    while (done < len) {
        m_cv.wait(lk, [&] { return m_count > 0 || m_ended; });
        if (m_count == 0) {
            std::memset(out + done, 0, len - done);
            done = len;
            break;
        }
        size_t n = std::min({len - done, m_count, m_size - m_head});
        std::memcpy(out + done, m_ring.get() + m_head, n);
        m_head = (m_head + n) % m_size;
        m_count -= n;
        done += n;
        m_cv.notify_all();
    }
    m_delivered += done;
    return done;
}

CContentPipe::Outcome CContentPipe::Result(bool waitForEnd) {
    std::unique_lock lk(m_lock);
    if (waitForEnd && m_ring) m_cv.wait(lk, [&] { return m_ended; });
    return {m_ended, m_ok, m_received};
}

void CContentPipe::Stop() {
    {
        std::lock_guard lk(m_lock);
        m_abort = true;
        m_cv.notify_all();
    }
    if (m_producer.joinable()) m_producer.join();
    std::lock_guard lk(m_lock);
    m_ring.reset();
    m_size = 0;
}

} // namespace kestrin
