#pragma once
// Files of a save written on two threads: the walk's own and one helper. The walk makes every
// file itself (names, renames and collisions stay on its thread, in order), hands it over, and
// takes the outcomes back in the order the files were made. At most kInFlight files are under way
// at any time; the helper is one thread for the whole save.
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "output/OutputTarget.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

class CFileWriters {
public:
    static constexpr size_t kInFlight = 6;

    struct Job {
        const CNode* node = nullptr;
        DetachedFile file;
        std::u16string name; // the name the walk made it under, for the log
        FileOutcome out;
        uint64_t bytes = 0;  // content bytes written (gone again when the write failed)
    };

    // Every content byte written on either thread is added to `done`. Once `stop` is set, a file
    // under way is cut short and a file not begun is removed unwritten (both come back cancelled).
    CFileWriters(COutputTarget& target, CPhysicalDisk& media, ContentWriter content, std::atomic<uint64_t>& done,
                 const std::atomic<bool>& stop);
    ~CFileWriters();
    CFileWriters(const CFileWriters&) = delete;
    CFileWriters& operator=(const CFileWriters&) = delete;

    // True when a second thread may read `media`'s source beside the walk: its reads are
    // positioned and keep no state, and the machine has a second core to run it on.
    static bool CanShare(CPhysicalDisk& media);

    // The calls below are made on the walk's thread only.
    bool Full() const;
    bool Empty() const;
    // The slot the next file goes into; only when not Full(). Submit queues it.
    Job& Next();
    void Submit();
    // The oldest file once it is written, else null; Pop() when it has been accounted for.
    Job* Oldest();
    void Pop();
    // Writes the oldest file not yet begun here, on the walk's thread; `tick` is asked after every
    // run of content (false: stop). False when no file waits to be begun.
    bool WriteOne(const std::function<bool()>& tick);
    // Waits until the oldest file is written (true), at most `timeout` (false).
    bool WaitOldest(std::chrono::milliseconds timeout);

private:
    enum class State : uint8_t { Free, Queued, Running, Written };
    // Index of the oldest queued job, kInFlight when none; under the lock.
    size_t OldestQueued() const;
    void Write(Job& job, CPhysicalDisk& media, const std::function<bool()>& tick);
    void Helper();

    COutputTarget& m_target;
    CPhysicalDisk& m_media;
    ContentWriter m_content;
    std::atomic<uint64_t>& m_done;
    const std::atomic<bool>& m_stop;
    // The helper's own view of the source: a media keeps a read position and counters of its own.
    std::unique_ptr<CPhysicalDisk> m_helperMedia;
    std::array<Job, kInFlight> m_jobs;
    std::array<State, kInFlight> m_state{};
    size_t m_head = 0, m_count = 0;
    mutable std::mutex m_mutex;
    std::condition_variable m_queued;  // the helper waits for work
    std::condition_variable m_written; // the walk waits for the oldest file
    bool m_quit = false;
    bool m_noHelper = false; // the system gave no thread: the walk writes every file
    std::thread m_thread;
};

} // namespace kestrin
