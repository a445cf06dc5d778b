#include "output/Saver.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <sstream>
#include <unordered_set>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "fs/SystemFolders.h"
#include "output/FileWriters.h"
#include "output/OutputTarget.h"
#include "platform/FileIdentity.h"
#include "platform/Platform.h"
#include "util/Text.h"

namespace kestrin {

namespace {

constexpr long kMsdosMagic = 0x4d44;
constexpr long kFuseMagic = 0x65735546;
// Progress is reported at most once per this many bytes inside one file.
constexpr uint64_t kProgressStep = 4u << 20;
constexpr uint32_t kProgressFiles = 64;
// How often the walk looks at the stop button and shows progress while it waits for a file
// written on the helper thread.
constexpr std::chrono::milliseconds kWaitStep{50};

bool IsNameGroupError(uint32_t code) {
    return code == platform::kErrPathNotFound || code == platform::kErrInvalidName || code == 161 ||
           code == platform::kErrFilenameTooLong;
}
bool IsExistsError(uint32_t code) { return code == platform::kErrFileExists || code == platform::kErrAlreadyExists; }

std::u16string Clip(std::u16string name) {
    if (name.size() > kOutputNameUnits) name.resize(kOutputNameUnits);
    return name;
}

// The node's name with the characters no saved name may hold replaced (separators, controls,
// direction overrides), for building counter names (the original name itself is tried unchanged
// and refused as invalid).
std::u16string Sanitised(const std::u16string& name) {
    std::u16string s = name;
    for (auto& c : s)
        if (c == u'/' || c == u'\\' || IsControlOrOverride(c)) c = u'_';
    return s;
}

std::u16string Utf16Of(const std::string& s) { return ToUtf16(s); }

// The name an item is saved under: ':' separates a file from its stream on NTFS ("file:stream"
// items) and is refused on FAT and Windows destinations, so it is saved as '_'.
std::u16string SavedName(const NodeName& name) {
    std::u16string s = name;
    std::replace(s.begin(), s.end(), u':', u'_');
    return s;
}

std::u16string CounterName(const std::u16string& nodeName, uint64_t number, bool plain) {
    std::u16string base = Sanitised(nodeName);
    std::u16string digits = Utf16Of(std::to_string(number));
    if (!plain) return Clip(digits + u"_" + base);
    size_t dot = base.rfind(u'.');
    return Clip(digits + (dot == std::u16string::npos ? base : base.substr(dot)));
}

class CSaveWalk {
public:
    CSaveWalk(CPhysicalDisk& media, ScanContext& ctx, const SaveRequest& req, COutputTarget& target)
        : m_media(media), m_ctx(ctx), m_req(req), m_target(target), m_mode(req.collisionMode) {}

    SaveResult Run(const CNode* start, bool fatDestination) {
        m_result.started = true;
        m_fat = fatDestination;
        m_shareReads = CFileWriters::CanShare(m_media);
        CollectIncluded(start);
        m_total = CountForSave(start, m_req.deletedOnly).bytes;
        m_ctx.Progress(0, int64_t(m_total), 1);
        // A single volume root is saved into the destination itself; several get a folder each.
        size_t volumes = 0;
        for (const CNode* c = start->firstChild; c; c = c->nextSibling)
            if (IsVolumeRoot(c) && m_folders.count(c)) ++volumes;
        uint32_t volumeNumber = 0;

        struct Frame {
            const CNode* next;
            bool entered;
        };
        std::vector<Frame> stack{{start->firstChild, false}};
        while (!stack.empty()) {
            Frame& f = stack.back();
            if (!f.next || m_stop.load()) {
                if (f.entered) {
                    Drain(); // the folder's files are written before it is closed
                    m_target.LeaveFolder();
                }
                stack.pop_back();
                continue;
            }
            const CNode* n = f.next;
            f.next = n->nextSibling;
            if (m_ctx.StopRequested()) {
                m_stop = true;
                continue;
            }
            if (!Included(n)) continue;
            if (IsVolumeRoot(n) && volumes == 1) {
                stack.push_back({n->firstChild, false});
                continue;
            }
            // "Skip this one" lasts for one item: the next one is asked about again.
            if (m_itemStarted && m_mode == kCollisionSkipOnce) m_mode = kCollisionAsk;
            m_itemStarted = true;
            if (n->IsFolder()) {
                std::u16string name = SavedName(n->name);
                if (IsVolumeRoot(n)) name = u"Volume " + Utf16Of(std::to_string(++volumeNumber));
                Drain(); // log lines name the current folder
                if (CreateObject(*n, name, true)) {
                    ++m_result.folders;
                    stack.push_back({n->firstChild, true});
                } else {
                    ++m_result.skipped;
                }
                continue;
            }
            if (m_fat && n->size >= kFatFileLimit) {
                ++m_result.refusedFat;
                Inform("IDS_CANNOT_SAVE_4GB_FILE");
                continue;
            }
            if (!CreateObject(*n, SavedName(n->name), false)) {
                ++m_result.skipped;
                continue;
            }
            // Carved items are byte ranges of the source: they may be written on the helper thread
            // while the walk goes on. Anything else is written here, after those under way.
            if (m_shareReads && n->carved && m_req.content == &WriteNodeContent) {
                if (!m_writers) m_writers.emplace(m_target, m_media, m_req.content, m_done, m_stop);
                MakeRoom();
                CFileWriters::Job& job = m_writers->Next();
                if (m_target.DetachFile(job.file)) {
                    job.node = n;
                    job.name = m_createdName;
                    m_writers->Submit();
                    TakeOutcomes();
                    continue;
                }
                m_shareReads = false; // this target writes one file at a time
            }
            Drain();
            const uint64_t doneBefore = m_done.load();
            FileOutcome out = m_target.WriteFile(m_media, *n, m_req.content, [&](uint64_t len) { return Advance(len); });
            Account(out, *n, m_createdName, m_done.load() - doneBefore);
        }
        Drain();
        m_writers.reset();
        m_result.cancelled = m_stop.load();
        m_target.Finish(m_result);
        m_result.bytes = m_done.load() - m_lostBytes;
        m_ctx.Progress(int64_t(m_done.load()), int64_t(m_total), 1);
        return m_result;
    }

private:
    static bool IsVolumeRoot(const CNode* n) {
        return n->name == u"." && n->IsFolder() && n->parent && !n->parent->parent;
    }
    bool FileIncluded(const CNode* n) const {
        return n->checked && (!m_req.deletedOnly || n->inDeletedView);
    }
    bool Included(const CNode* n) const { return n->IsFolder() ? m_folders.count(n) > 0 : FileIncluded(n); }

    // Folders on the way to a ticked item, and ticked folders themselves, are re-created. A
    // system folder ("$Extend" and what lies below it, "Lost") is no such item of its own: it is
    // made only on the way to a ticked file or a ticked ordinary folder inside it, never empty.
    void CollectIncluded(const CNode* start) {
        ForEachNode(const_cast<CNode*>(start), [&](CNode* n) {
            if (!FileIncluded(n) || IsSystemFolder(n)) return;
            for (const CNode* p = n->IsFolder() ? n : n->parent; p && p != start; p = p->parent)
                if (!m_folders.insert(p).second) break;
        });
    }

    bool Advance(uint64_t len) {
        m_done.fetch_add(len, std::memory_order_relaxed);
        return Tick();
    }

    // On the walk's thread, after content was written on either thread: progress at most once
    // per step, and the stop button. False once the save is to stop.
    bool Tick() {
        uint64_t done = m_done.load(std::memory_order_relaxed);
        if (done - m_reported >= kProgressStep) {
            m_reported = done;
            m_ctx.Progress(int64_t(done), int64_t(m_total), 1);
            if (m_ctx.StopRequested()) m_stop = true;
        }
        return !m_stop.load();
    }

    // What came of one file, counted and logged in the order the files were made.
    void Account(const FileOutcome& out, const CNode& node, const std::u16string& name, uint64_t bytes) {
        if (out.cancelled) {
            m_stop = true;
        } else if (out.writeError) {
            // Not saved at all: the partial file is gone. A full disk is told apart from
            // other write errors, and from unreadable source sectors.
            ++m_result.writeErrors;
            m_lostBytes += bytes; // written, then removed with the partial file
            if (out.writeError == ENOSPC || out.writeError == EDQUOT) m_result.diskFull = true;
            std::string text = platform::ErrnoText(out.writeError);
            if (m_result.writeErrorText.empty()) m_result.writeErrorText = text;
            LogLine(u"Not saved, could not be written (" + Utf16Of(text) + u"): ", name);
        } else {
            ++m_result.files;
            if (!out.complete) {
                ++m_result.incomplete;
                m_result.unreadableBytes += out.unreadable;
                LogLine(u"Saved with unreadable parts (" + Utf16Of(std::to_string(out.unreadable)) + u" of " +
                            Utf16Of(std::to_string(node.size)) + u" bytes could not be read): ",
                        name);
            }
        }
        // Many small files move the byte count little; report by item count as well.
        if (++m_filesSinceReport >= kProgressFiles) {
            m_filesSinceReport = 0;
            m_ctx.Progress(int64_t(m_done.load()), int64_t(m_total), 1);
        }
    }

    // Outcomes of the files written so far, oldest first, up to the first still under way.
    void TakeOutcomes() {
        if (!m_writers) return;
        while (CFileWriters::Job* job = m_writers->Oldest()) {
            Account(job->out, *job->node, job->name, job->bytes);
            m_writers->Pop();
        }
    }

    // Works on the files under way (writes one here, or waits for the helper) until `enough`.
    template <class Enough>
    void WorkUntil(Enough enough) {
        if (!m_writers) return;
        const std::function<bool()> tick = [this] { return Tick(); };
        for (;;) {
            TakeOutcomes();
            if (enough()) return;
            if (m_writers->WriteOne(tick)) continue;
            if (m_writers->WaitOldest(kWaitStep)) continue;
            // A long file on the helper: the walk still shows progress and hears the stop button.
            m_ctx.Progress(int64_t(m_done.load()), int64_t(m_total), 1);
            if (m_ctx.StopRequested()) m_stop = true;
        }
    }
    // Room for one more file under way.
    void MakeRoom() { WorkUntil([&] { return !m_writers->Full(); }); }
    // Every file under way written and accounted for: before a folder changes, a log line of the
    // walk's own, or a file written on this thread.
    void Drain() { WorkUntil([&] { return m_writers->Empty(); }); }

    void Inform(const char* id) {
        if (m_req.messages)
            m_req.messages->Show(InformationOf(id));
    }

    // Creates the folder or file of one node under `baseName`, renaming as the collision mode
    // says. False when the node is to be skipped.
    bool CreateObject(const CNode& node, const std::u16string& baseName, bool folder) {
        std::u16string name = Clip(baseName);
        uint32_t counter = 0;
        for (;;) {
            uint32_t code = folder ? m_target.CreateFolder(name) : m_target.CreateFile(name);
            if (code == 0) {
                m_createdName = name;
                return true;
            }
            if (!IsNameGroupError(code) && !IsExistsError(code)) {
                // Refusals other than names (no room for the entry, no rights) are write errors.
                Drain(); // the first write error's text is that of the first in walk order
                if (code == platform::kErrDiskFull) m_result.diskFull = true;
                ++m_result.writeErrors;
                if (m_result.writeErrorText.empty()) m_result.writeErrorText = platform::SysErrorText(code);
                return false;
            }
            for (;;) {
                if (m_mode == kCollisionSkipOnce || m_mode == kCollisionSkip) return false;
                if (m_mode == kCollisionAsk) {
                    if (!m_req.askRename) return false;
                    std::u16string typed = name;
                    uint8_t mode = m_mode;
                    bool confirmed = m_req.askRename(typed, code, mode);
                    m_mode = mode;
                    if (!confirmed) return false;
                    if (m_mode == kCollisionAsk) {
                        name = Clip(typed);
                        break;
                    }
                    continue; // the answer switched to another mode: handle the refusal by it
                }
                if (m_mode == kCollisionRename || m_mode == kCollisionRenameByNumber) {
                    if (m_mode == kCollisionRenameByNumber && IsNameGroupError(code)) m_target.RemoveRegularFile(name);
                    if (counter > kCounterLast) {
                        Log(name);
                        return false;
                    }
                    uint64_t number = counter;
                    // The item's own number comes first: the start sector of a carved file, the
                    // record or first cluster of a file-system item.
                    if (m_mode == kCollisionRenameByNumber && counter == 0)
                        number = node.carved ? node.location : node.recordId;
                    name = CounterName(baseName, number, counter <= kPlainCounterLast);
                    ++counter;
                    break;
                }
                return false;
            }
        }
    }

    void Log(const std::u16string& lastName) {
        Drain();
        if (!m_renameHeader) {
            if (!m_logOpen) m_logOpen = m_target.OpenLog();
            if (!m_logOpen) return;
            m_renameHeader = true;
            m_target.WriteLog(u"The following files were not saved dude to long-file path/rename issues: \n");
        }
        m_target.WriteLog(Utf16Of(m_target.CurrentFolder()) + kPathSeparator + lastName + u"\n");
        ++m_result.logged;
    }

    // One line for a file that was written in part or not at all: `what`, then its path.
    void LogLine(const std::u16string& what, const std::u16string& name) {
        if (!m_logOpen) m_logOpen = m_target.OpenLog();
        if (!m_logOpen) return; // no room left even for the log
        m_target.WriteLog(what + Utf16Of(m_target.CurrentFolder()) + kPathSeparator + name + u"\n");
    }

    CPhysicalDisk& m_media;
    ScanContext& m_ctx;
    const SaveRequest& m_req;
    COutputTarget& m_target;
    uint8_t m_mode;
    bool m_fat = false;
    bool m_logOpen = false;
    bool m_renameHeader = false;
    std::u16string m_createdName;
    bool m_itemStarted = false;
    std::unordered_set<const CNode*> m_folders;
    uint64_t m_total = 0;
    std::atomic<uint64_t> m_done{0}; // content bytes written, on either thread
    uint64_t m_reported = 0;         // m_done when progress was last shown
    std::atomic<bool> m_stop{false}; // the save is stopping: nothing more is begun
    bool m_shareReads = false;       // carved items may be written on the helper thread
    std::optional<CFileWriters> m_writers;
    uint64_t m_lostBytes = 0; // bytes of files that failed to write
    uint32_t m_filesSinceReport = 0;
    SaveResult m_result;
};


// The folder a zip archive is written into; the folder itself otherwise.
std::string FolderOf(const std::string& destination) {
    if (!IsZipDestination(destination)) return destination;
    std::filesystem::path p(destination);
    auto parent = p.parent_path();
    return parent.empty() ? std::string(".") : parent.string();
}

} // namespace

bool IsZipDestination(const std::string& path) {
    return path.size() > 4 && EqualsNoCase(std::string_view(path).substr(path.size() - 4), ".zip");
}

bool IsFatFolder(const std::string& folder) {
    struct statfs fs;
    if (::statfs(folder.c_str(), &fs) != 0) return false;
    if (fs.f_type == kMsdosMagic) return true;
    if (fs.f_type != kFuseMagic) return false;
    // A FAT volume mounted through FUSE: its type name comes from the mount table.
    struct stat st;
    if (::stat(folder.c_str(), &st) != 0) return false;
    std::ifstream in("/proc/self/mountinfo");
    std::string line, want = std::to_string(major(st.st_dev)) + ":" + std::to_string(minor(st.st_dev));
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string id, parent, dev;
        fields >> id >> parent >> dev;
        if (dev != want) continue;
        size_t dash = line.find(" - ");
        if (dash == std::string::npos) continue;
        std::istringstream rest(line.substr(dash + 3));
        std::string type;
        rest >> type;
        for (const char* fat : {"vfat", "msdos", "fat", "fat32", "fuse.fusefat"})
            if (EqualsNoCase(type, fat)) return true;
    }
    return false;
}

bool DestinationOnSource(const std::string& folder, const CPhysicalDisk& source) {
    struct stat dest;
    if (::stat(folder.c_str(), &dest) != 0) return false;
    if (source.GetDeviceKind() == kNotByName) {
        struct stat image;
        std::string path = ToUtf8(source.GetPath());
        return !path.empty() && ::stat(path.c_str(), &image) == 0 && image.st_dev == dest.st_dev;
    }
    struct stat dev;
    if (source.DevicePath().empty() || ::stat(source.DevicePath().c_str(), &dev) != 0) return false;
    if (!S_ISBLK(dev.st_mode)) return dev.st_dev == dest.st_dev;
    // The source device itself or a partition of the source disk.
    return platform::SameDiskOrPartition(dev.st_rdev, dest.st_dev);
}

bool CheckDestination(const CPhysicalDisk& source, const CNode* top, const SaveRequest& request,
                      IUserMessages& messages) {
    auto refuse = [&](const char* id) {
        messages.Show(InformationOf(id));
        return false;
    };
    std::string folder = FolderOf(request.destination);
    const CNode* start = request.start ? request.start : top;
    uint64_t marked = start ? CountForSave(start, request.deletedOnly).bytes : 0;
    struct statvfs vfs;
    uint64_t freeBytes = ::statvfs(folder.c_str(), &vfs) == 0 ? uint64_t(vfs.f_bavail) * vfs.f_frsize : 0;
    if (marked > freeBytes) return refuse("IDS_INSUFFICIENT_DISK_SPACE_TO_STORE");
    if (DestinationOnSource(folder, source)) return refuse("IDS_TRYING_TO_SAVE_DATA_ON_SAME");
    return true;
}

SaveResult SaveMarked(CPhysicalDisk& media, ScanContext& ctx, const SaveRequest& request) {
    SaveResult result;
    const CNode* start = request.start ? request.start : ctx.top;
    if (!start) return result;
    CSilentMessages silent;
    IUserMessages& messages = request.messages ? *request.messages : silent;
    std::unique_ptr<COutputTarget> target = IsZipDestination(request.destination)
                                                ? MakeZipTarget(request.destination, messages, request.replaceExisting)
                                                : MakeFolderTarget(request.destination);
    if (!request.destinationIsFat) {
        SaveRequest withFat = request;
        withFat.destinationIsFat = !IsZipDestination(request.destination) && IsFatFolder(request.destination);
        return SaveInto(*target, media, ctx, withFat);
    }
    return SaveInto(*target, media, ctx, request);
}

SaveResult SaveInto(COutputTarget& target, CPhysicalDisk& media, ScanContext& ctx, const SaveRequest& request) {
    const CNode* start = request.start ? request.start : ctx.top;
    if (!start) return {};
    if (uint32_t code = target.Open()) {
        if (request.messages) {
            UserMessage m = InformationOf("IDS_SAVING_FAILED", kSavingFailed);
            m.text.push_back(Words(" " + request.destination + ": " + platform::SysErrorText(code)));
            request.messages->Show(m);
        }
        return {};
    }
    CSaveWalk walk(media, ctx, request, target);
    return walk.Run(start, request.destinationIsFat.value_or(false));
}

Outcome OutcomeOf(const SaveResult& r) {
    if (r.cancelled) return Outcome::Stopped;
    if (r.incomplete || r.writeErrors || r.archiveFailed) return Outcome::ReadFailed;
    return Outcome::Ok;
}

} // namespace kestrin
