#include "ui/CThumbnailLoader.h"

#include <QImage>
#include <QPainter>
#include <QRunnable>
#include <algorithm>

#include "fs/VolumeHandle.h"
#include "output/ContentCopy.h"
#include "scan/MediaTypes.h"
#include "storage/CPhysicalDisk.h"
#include "ui/CResultsState.h"
#include "ui/PreviewContent.h"

namespace kestrin::ui {

namespace {

constexpr int kThumbnailCacheKB = 96 * 1024;

} // namespace

CThumbnailLoader::CThumbnailLoader(CResultsState& state, QObject* parent)
    : QObject(parent), m_state(state), m_cache(kThumbnailCacheKB), m_cancel(std::make_shared<std::atomic<bool>>(false)) {
    m_pool.setMaxThreadCount(std::clamp(QThread::idealThreadCount() - 1, 1, 2));
    // Reset comes before the old tree is destroyed: nothing may read it after this.
    connect(&m_state, &CResultsState::Reset, this, [this] { Stop(true); });
}

CThumbnailLoader::~CThumbnailLoader() { Stop(true); }

void CThumbnailLoader::SetSource(CPhysicalDisk* media) {
    if (media == m_media) return;
    Stop(true);
    m_media = media;
}

bool CThumbnailLoader::WantsThumbnail(const CNode* n) {
    if (!n || n->IsFolder() || n->size == 0) return false;
    MediaClass c = MediaClassOfName(n->name);
    return c == MediaClass::Photo || c == MediaClass::CameraRaw;
}

void CThumbnailLoader::Stop(bool clearCache) {
    m_cancel->store(true);
    m_waiting.clear();
    m_pool.waitForDone();
    ++m_generation; // results still on their way belong to the old tree
    m_queued.clear();
    m_running = 0;
    m_cancel = std::make_shared<std::atomic<bool>>(false);
    if (clearCache) {
        m_cache.clear();
        m_failed.clear();
    }
}

const QPixmap* CThumbnailLoader::Thumbnail(const CNode* n) {
    if (const QPixmap* p = m_cache.object(n)) return p;
    if (!m_media || !WantsThumbnail(n) || m_failed.contains(n)) return nullptr;
    if (m_queued.contains(n)) {
        // Asked again (still in view): to the front of the queue.
        auto it = std::find(m_waiting.begin(), m_waiting.end(), n);
        if (it != m_waiting.end()) {
            m_waiting.erase(it);
            m_waiting.push_back(n);
        }
        return nullptr;
    }
    m_queued.insert(n);
    m_waiting.push_back(n);
    while (int(m_waiting.size()) > kPendingLimit) {
        m_queued.remove(m_waiting.front()); // scrolled past long ago: asked for again if shown
        m_waiting.pop_front();
    }
    StartJobs();
    return nullptr;
}

void CThumbnailLoader::StartJobs() {
    while (!m_waiting.empty() && m_running < m_pool.maxThreadCount() && m_media && m_media->Handle()) {
        const CNode* n = m_waiting.back();
        m_waiting.pop_back();
        ++m_running;
        // Taken on this thread: the media's selection and the node's fields do not change while
        // the job runs, and Stop() waits for it before the tree or the media go.
        VolumeHandle selection = HandleOf(*m_media);
        ByteSource* handle = m_media->Handle();
        bool raw = IsCameraRawName(QString::fromStdU16String(n->name));
        size_t want = size_t(std::min<uint64_t>(n->size, raw ? kRawReadLimit : kPictureReadLimit));
        auto cancel = m_cancel;
        quint64 generation = m_generation;
        m_pool.start([=, this] {
            CPhysicalDisk view;
            view.Attach(std::make_unique<BorrowedSource>(*handle));
            SelectVolume(view, selection);
            QByteArray bytes;
            bytes.reserve(qsizetype(want));
            WriteNodeContent(view, *n, [&](const uint8_t* p, size_t len) {
                size_t take = std::min(len, want - size_t(bytes.size()));
                bytes.append(reinterpret_cast<const char*>(p), qsizetype(take));
                return size_t(bytes.size()) < want && !cancel->load();
            });
            QImage img = cancel->load() ? QImage() : DecodeThumbnail(bytes, raw, kEdge);
            if (cancel->load()) return;
            // Delivered on the window's thread; Stop() outwaits this job, and an event still
            // queued when the loader goes is dropped with it.
            QMetaObject::invokeMethod(
                this, [this, generation, n, img] { Finished(generation, n, img); }, Qt::QueuedConnection);
        });
    }
}

void CThumbnailLoader::Finished(quint64 generation, const CNode* n, const QImage& image) {
    if (generation != m_generation) return;
    --m_running;
    m_queued.remove(n);
    if (image.isNull()) {
        m_failed.insert(n);
    } else {
        // On a square of the full edge, centred: every item of the grid lines up the same way.
        auto* pm = new QPixmap(kEdge, kEdge);
        pm->fill(Qt::transparent);
        QPainter paint(pm);
        paint.drawImage((kEdge - image.width()) / 2, (kEdge - image.height()) / 2, image);
        paint.end();
        m_cache.insert(n, pm, std::max(1, int(qint64(pm->width()) * pm->height() * 4 / 1024)));
    }
    emit Ready(n);
    StartJobs();
}

} // namespace kestrin::ui
