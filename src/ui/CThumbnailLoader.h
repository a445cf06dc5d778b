#pragma once
// Thumbnails of found pictures: read through the item's volume and decoded on a worker thread,
// kept in a bounded cache keyed by node. Only what a view asks for is loaded, newest requests
// first, and requests a view scrolled past long ago are dropped.
#include <QCache>
#include <QHash>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QThreadPool>
#include <atomic>
#include <deque>
#include <memory>

#include "fs/CNode.h"

namespace kestrin {
class CPhysicalDisk;
}

namespace kestrin::ui {

class CResultsState;

class CThumbnailLoader final : public QObject {
    Q_OBJECT
public:
    static constexpr int kEdge = 128;                      // pixels on the longer side
    static constexpr size_t kPictureReadLimit = 32u << 20; // bytes read of a picture
    static constexpr size_t kRawReadLimit = 8u << 20;      // of a camera raw file, for its preview
    static constexpr int kPendingLimit = 96;               // requests kept waiting

    // Follows `state`: a new tree (or none) cancels and waits for the work on the old one.
    explicit CThumbnailLoader(CResultsState& state, QObject* parent = nullptr);
    ~CThumbnailLoader() override;

    // The source items are read from; null stops loading. Waits for running work first.
    void SetSource(CPhysicalDisk* media);
    // Pictures get thumbnails, by their names (camera raw files through their preview).
    static bool WantsThumbnail(const CNode* n);
    // The cached thumbnail, or null after queuing the node's load (once; failures are
    // remembered and not tried again).
    const QPixmap* Thumbnail(const CNode* n);
    bool Failed(const CNode* n) const { return m_failed.contains(n); }
    // Drops the queue and waits for running loads; the cache is kept unless `clearCache`.
    void Stop(bool clearCache);

signals:
    void Ready(const kestrin::CNode* node);

private:
    struct Job;
    void StartJobs();
    void Finished(quint64 generation, const CNode* n, const QImage& image);

    CResultsState& m_state;
    CPhysicalDisk* m_media = nullptr;
    QThreadPool m_pool;
    QCache<const CNode*, QPixmap> m_cache;
    QSet<const CNode*> m_failed;
    QSet<const CNode*> m_queued; // waiting or running
    std::deque<const CNode*> m_waiting; // newest at the back
    int m_running = 0;
    quint64 m_generation = 0;
    std::shared_ptr<std::atomic<bool>> m_cancel;
};

} // namespace kestrin::ui
