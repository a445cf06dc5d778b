#include "output/FileWriters.h"

#include <system_error>

#include "output/ContentCopy.h"

namespace kestrin {

CFileWriters::CFileWriters(COutputTarget& target, CPhysicalDisk& media, ContentWriter content,
                           std::atomic<uint64_t>& done, const std::atomic<bool>& stop)
    : m_target(target), m_media(media), m_content(content), m_done(done), m_stop(stop) {}

CFileWriters::~CFileWriters() {
    {
        std::lock_guard lk(m_mutex);
        m_quit = true;
    }
    m_queued.notify_all();
    if (m_thread.joinable()) m_thread.join();
    // The walk takes every outcome back before it ends; anything still here was never begun.
    for (size_t i = 0; i < m_count; ++i) {
        size_t at = (m_head + i) % kInFlight;
        if (m_state[at] == State::Queued) m_target.DiscardDetached(m_jobs[at].file);
    }
}

bool CFileWriters::CanShare(CPhysicalDisk& media) {
    return media.Handle() && media.Handle()->ConcurrentReads() && std::thread::hardware_concurrency() != 1;
}

bool CFileWriters::Full() const {
    std::lock_guard lk(m_mutex);
    return m_count == kInFlight;
}

bool CFileWriters::Empty() const {
    std::lock_guard lk(m_mutex);
    return m_count == 0;
}

CFileWriters::Job& CFileWriters::Next() {
    std::lock_guard lk(m_mutex);
    return m_jobs[(m_head + m_count) % kInFlight];
}

void CFileWriters::Submit() {
    if (!m_thread.joinable() && !m_noHelper) {
        // The helper reads through a media of its own over the same source, narrowed the same way.
        m_helperMedia = std::make_unique<CPhysicalDisk>();
        m_helperMedia->Attach(std::make_unique<BorrowedSource>(*m_media.Handle()));
        m_helperMedia->SetSectorSize(m_media.GetSectorSize());
        m_helperMedia->SetFirstSector(m_media.GetFirstSector());
        m_helperMedia->SetSectorCount(m_media.GetSectorCount());
        m_helperMedia->SetFsKind(m_media.GetFsKind());
        m_helperMedia->SetPartitionParams(m_media.GetPartitionParams());
        m_helperMedia->SetSourceKind(m_media.GetSourceKind());
        try {
            m_thread = std::thread([this] { Helper(); });
        } catch (const std::system_error&) {
            m_noHelper = true; // no thread to be had: the walk writes every file itself
        }
    }
    {
        std::lock_guard lk(m_mutex);
        size_t at = (m_head + m_count) % kInFlight;
        Job& job = m_jobs[at];
        job.out = {};
        job.bytes = 0;
        m_state[at] = State::Queued;
        ++m_count;
    }
    m_queued.notify_one();
}

CFileWriters::Job* CFileWriters::Oldest() {
    std::lock_guard lk(m_mutex);
    return m_count && m_state[m_head] == State::Written ? &m_jobs[m_head] : nullptr;
}

void CFileWriters::Pop() {
    std::lock_guard lk(m_mutex);
    m_state[m_head] = State::Free;
    m_head = (m_head + 1) % kInFlight;
    --m_count;
}

size_t CFileWriters::OldestQueued() const {
    for (size_t i = 0; i < m_count; ++i) {
        size_t at = (m_head + i) % kInFlight;
        if (m_state[at] == State::Queued) return at;
    }
    return kInFlight;
}

bool CFileWriters::WriteOne(const std::function<bool()>& tick) {
    size_t at;
    {
        std::lock_guard lk(m_mutex);
        at = OldestQueued();
        if (at == kInFlight) return false;
        m_state[at] = State::Running;
    }
    Write(m_jobs[at], m_media, tick);
    {
        std::lock_guard lk(m_mutex);
        m_state[at] = State::Written;
    }
    return true;
}

bool CFileWriters::WaitOldest(std::chrono::milliseconds timeout) {
    std::unique_lock lk(m_mutex);
    return m_written.wait_for(lk, timeout, [&] { return m_count == 0 || m_state[m_head] == State::Written; });
}

void CFileWriters::Write(Job& job, CPhysicalDisk& media, const std::function<bool()>& tick) {
    if (m_stop.load()) {
        m_target.DiscardDetached(job.file);
        job.out = {false, true};
        return;
    }
    // One pointer in the callback: it fits the function object's own storage, so no file of the
    // save costs an allocation here.
    struct Step {
        CFileWriters* self;
        Job* job;
        const std::function<bool()>* tick;
    } step{this, &job, &tick};
    AdvanceFn advance = [s = &step](uint64_t len) {
        s->job->bytes += len;
        s->self->m_done.fetch_add(len, std::memory_order_relaxed);
        return (*s->tick)();
    };
    job.out = m_target.WriteDetached(job.file, media, *job.node, m_content, advance);
}

void CFileWriters::Helper() {
    const std::function<bool()> tick = [this] { return !m_stop.load(std::memory_order_relaxed); };
    std::unique_lock lk(m_mutex);
    for (;;) {
        size_t at = kInFlight;
        m_queued.wait(lk, [&] { return m_quit || (at = OldestQueued()) != kInFlight; });
        if (at == kInFlight) return;
        m_state[at] = State::Running;
        lk.unlock();
        Write(m_jobs[at], *m_helperMedia, tick);
        lk.lock();
        m_state[at] = State::Written;
        m_written.notify_all();
    }
}

} // namespace kestrin
