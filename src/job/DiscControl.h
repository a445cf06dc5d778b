#pragma once
// What a save to a disc shares with the driver while the recorder works: whether the medium is
// being erased or written, and how to stop the recorder. A cancel confirmed in that time clears
// both flags, stops the recorder and gives it a few seconds to come to rest before the user is
// told; the wait goes through `sleep` so that tests need not spend it.
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

namespace kestrin {

class DiscControl {
public:
    static constexpr std::chrono::milliseconds kSettle{5000};

    void SetErasing(bool on) { m_erasing.store(on); }
    void SetWriting(bool on) { m_writing.store(on); }
    bool Erasing() const { return m_erasing.load(); }
    bool Writing() const { return m_writing.load(); }
    bool Busy() const { return Erasing() || Writing(); }
    // Set while the recorder is in use; cleared (empty) when it is released.
    void SetStop(std::function<void()> stop) {
        std::lock_guard lk(m_mutex);
        m_stop = std::move(stop);
    }
    // Clears both flags; false when the recorder was neither erasing nor writing.
    bool ClaimStop() {
        bool busy = m_erasing.exchange(false);
        busy = m_writing.exchange(false) || busy;
        if (busy) m_stopped.store(true);
        return busy;
    }
    void StopRecorder() {
        std::lock_guard lk(m_mutex);
        if (m_stop) m_stop();
    }
    // True once a cancel claimed the recorder: the write did not complete.
    bool Stopped() const { return m_stopped.load(); }
    void Settle() const {
        if (sleep)
            sleep(kSettle);
        else
            std::this_thread::sleep_for(kSettle);
    }

    std::function<void(std::chrono::milliseconds)> sleep;

private:
    std::atomic<bool> m_erasing{false}, m_writing{false}, m_stopped{false};
    std::mutex m_mutex;
    std::function<void()> m_stop;
};

} // namespace kestrin
