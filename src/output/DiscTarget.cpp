// Saving to a disc or an ISO image file. The walk builds the image's tree: folders, and for each
// file a stream of our own that knows the found item. Nothing is read while the tree is built;
// when the image is written, the image writer asks each stream for its bytes in turn and the
// stream pulls them from the item's content copy through a content pipe. The same image goes into a file or, through the recorder's library, onto the medium.
#include "output/DiscTarget.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/statvfs.h>

#include <libburn.h>
#include <libisofs.h>

#include "fs/CNode.h"
#include "output/ContentPipe.h"
#include "output/MemoryLog.h"
#include "output/OutputTarget.h"
#include "platform/AtomicFile.h"
#include "platform/FileIdentity.h"
#include "platform/Platform.h"
#include "util/Text.h"

// The library declares this structure for C only; its layout is part of its interface.
struct iso_stream {
    IsoStreamIface* cls;
    int refcount;
    void* data;
};

namespace kestrin {

namespace {

// The recorder's library declares itself in a namespace of its own for C++; the image library
// names the same C structure for its output at global scope.
using namespace burn;
using BurnSource = burn::burn_source;

// The image writer's output as the recorder's library sees it.
int CreateImageSource(IsoImage* image, IsoWriteOpts* opts, BurnSource** out) {
    ::burn_source* src = nullptr;
    int rc = iso_image_create_burn_source(image, opts, &src);
    *out = reinterpret_cast<BurnSource*>(src);
    return rc;
}

constexpr uint64_t kProgressStep = 4u << 20;
constexpr uint32_t kBlock = 2048;
// Blocks moved per read of the finished image into a file.
constexpr int kCopyBlocks = 32;
// The recorder's buffer between the image writer and the drive: 2,048 blocks of 2 KiB.
constexpr int kFifoChunks = 2048;
// Identifies our streams among the library's own (its file systems use small numbers).
constexpr unsigned kStreamFsId = 0x4b535452;
constexpr auto kPoll = std::chrono::milliseconds(100);

void InitLibraries() {
    static std::once_flag once;
    std::call_once(once, [] {
        iso_init();
        iso_set_local_charset(const_cast<char*>("UTF-8"), 0);
        // The libraries keep their remarks to themselves; failures are told in our own words,
        // with the library's last complaint added.
        iso_set_msgs_severities(const_cast<char*>("NEVER"), const_cast<char*>("NEVER"), const_cast<char*>(""));
        burn_initialize();
        burn_msgs_set_severities(const_cast<char*>("SORRY"), const_cast<char*>("NEVER"), const_cast<char*>(""));
        // A "stdio:" file that can only be read is a closed disc, one that can only be written
        // and holds data is an appendable one whose earlier sessions cannot be read: both are
        // refused with a reason before anything is written, instead of failing in the middle or
        // writing over what the file holds.
        burn_allow_drive_role_4(1 | 2 | 8);
    });
}

// The most recent complaint of the recorder's library, "" when none is queued.
std::string LastBurnMessage() {
    std::string last;
    int code = 0, osErrno = 0;
    char text[BURN_MSGS_MESSAGE_LEN];
    char severity[80];
    while (burn_msgs_obtain(const_cast<char*>("SORRY"), &code, text, &osErrno, severity) == 1) last = text;
    return last;
}

std::string SizeText(uint64_t bytes) {
    // Whole megabytes for the user, the exact count behind it.
    return std::to_string((bytes + (1 << 20) - 1) >> 20) + " MB (" + std::to_string(bytes) + " bytes)";
}

uint16_t Fnv16(const std::u16string& s) {
    uint32_t h = 2166136261u;
    for (char16_t c : s) {
        h = (h ^ uint8_t(c)) * 16777619u;
        h = (h ^ uint8_t(c >> 8)) * 16777619u;
    }
    return uint16_t(h ^ (h >> 16));
}

std::string Trim(std::string s) {
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
    size_t i = s.find_first_not_of(' ');
    return i == std::string::npos ? std::string() : s.substr(i);
}

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }

// The first `units` units of `s`, without leaving half of a surrogate pair at the end.
std::u16string Head(const std::u16string& s, size_t units) {
    if (units >= s.size()) return s;
    if (units && IsHighSurrogate(s[units - 1])) --units;
    return s.substr(0, units);
}

class CDiscImage;

// One found item's content as the image writer reads it.
struct ItemStream {
    CDiscImage* owner = nullptr;
    CPhysicalDisk* media = nullptr;
    const CNode* node = nullptr;
    ContentWriter content = nullptr;
    uint64_t size = 0;
    ino_t serial = 0;
    bool counted = false;
    // Holds the file's announced size at most: the bytes beyond it are not its content.
    CContentPipe pipe;
};

int StreamOpen(IsoStream* s);
int StreamClose(IsoStream* s);
off_t StreamSize(IsoStream* s) { return off_t(static_cast<ItemStream*>(s->data)->size); }
int StreamRead(IsoStream* s, void* buf, size_t count);
int StreamRepeatable(IsoStream*) { return 1; }
void StreamId(IsoStream* s, unsigned int* fsId, dev_t* devId, ino_t* inoId) {
    // Every item is its own content: equal numbers would let the writer store one copy for both.
    *fsId = kStreamFsId;
    *devId = 0;
    *inoId = static_cast<ItemStream*>(s->data)->serial;
}
void StreamFree(IsoStream* s);

IsoStreamIface g_itemStreamClass = {0, {'k', 'i', 't', 'm'}, StreamOpen, StreamClose, StreamSize, StreamRead,
                                    StreamRepeatable, StreamId, StreamFree, nullptr, nullptr, nullptr, nullptr};

// The image being built: its tree, the streams' progress and outcome, and the writing.
class CDiscImage {
public:
    CDiscImage(ScanContext& ctx, IUserMessages& messages, std::string label)
        : m_ctx(ctx), m_messages(messages), m_label(std::move(label)) {}
    ~CDiscImage() {
        if (m_image) iso_image_unref(m_image);
    }

    bool Create(const std::string& volumeId) {
        if (iso_image_new(volumeId.c_str(), &m_image) < 0) return false;
        iso_image_set_volume_id(m_image, volumeId.c_str());
        return true;
    }
    IsoImage* Image() const { return m_image; }
    IsoDir* Root() const { return iso_image_get_root(m_image); }
    const std::string& Label() const { return m_label; }

    // A file of the tree whose content is read from the item when the image is written.
    int AddFile(IsoDir* dir, const std::string& name, CPhysicalDisk& media, const CNode& node, ContentWriter content) {
        auto* data = new ItemStream;
        data->owner = this;
        data->media = &media;
        data->node = &node;
        data->content = content;
        data->size = node.size;
        data->serial = ino_t(++m_serial);
        // The library frees the stream itself with free() when its last reference goes.
        auto* stream = static_cast<IsoStream*>(std::calloc(1, sizeof(IsoStream)));
        if (!stream) {
            delete data;
            return int(ISO_OUT_OF_MEM);
        }
        *stream = IsoStream{&g_itemStreamClass, 1, data};
        IsoFile* file = nullptr;
        int rc = iso_tree_add_new_file(dir, name.c_str(), stream, &file);
        if (rc < 0) {
            iso_stream_unref(stream); // on success the file holds the only reference
            return rc;
        }
        m_total += node.size;
        SetTimes(reinterpret_cast<IsoNode*>(file), SaveDateOf(node.modifiedDate, node.createdDate));
        iso_node_set_permissions(reinterpret_cast<IsoNode*>(file), 0644);
        return rc;
    }
    void SetTimes(IsoNode* node, uint16_t dosDate) const {
        int64_t t = 0;
        if (!LocalTimeOfDosDate(dosDate, t)) t = int64_t(m_now);
        iso_node_set_mtime(node, time_t(t));
        iso_node_set_atime(node, time_t(t));
        iso_node_set_ctime(node, time_t(t));
    }
    void Removed(uint64_t size) { m_total -= std::min(m_total, size); }

    // Called with every run of bytes handed to the image writer; false stops the writing.
    bool Advance(uint64_t len) {
        m_done += len;
        m_sinceReport += len;
        if (m_sinceReport >= kProgressStep) {
            m_sinceReport = 0;
            m_ctx.Progress(int64_t(m_done), int64_t(m_total), 1);
            if (m_ctx.StopRequested()) {
                m_cancelled = true;
                return false;
            }
        }
        return true;
    }
    void Outcome(bool complete, uint64_t unreadable) {
        std::lock_guard lk(m_outcomeLock);
        if (complete) return;
        ++m_incomplete;
        m_unreadable += unreadable;
    }
    void Cancel() { m_cancelled = true; }

    uint64_t Total() const { return m_total; }
    uint64_t Done() const { return m_done; }
    bool Cancelled() const { return m_cancelled; }
    uint64_t Incomplete() const { return m_incomplete; }
    uint64_t Unreadable() const { return m_unreadable; }
    ScanContext& Context() { return m_ctx; }
    IUserMessages& Messages() { return m_messages; }

private:
    ScanContext& m_ctx;
    IUserMessages& m_messages;
    std::string m_label;
    IsoImage* m_image = nullptr;
    uint64_t m_serial = 0;
    uint64_t m_total = 0, m_done = 0, m_sinceReport = 0;
    std::atomic<bool> m_cancelled{false};
    std::mutex m_outcomeLock;
    uint64_t m_incomplete = 0, m_unreadable = 0;
    std::time_t m_now = std::time(nullptr);
};

int StreamOpen(IsoStream* s) {
    auto* item = static_cast<ItemStream*>(s->data);
    item->pipe.Start(*item->media, *item->node, item->content, item->size);
    return 1;
}

int StreamRead(IsoStream* s, void* buf, size_t count) {
    auto* item = static_cast<ItemStream*>(s->data);
    if (item->owner->Cancelled()) return int(ISO_CANCELED);
    // The image has announced the full size: a short source reads as zeros to the end.
    size_t n = item->pipe.ReadFull(static_cast<uint8_t*>(buf), count);
    if (n && !item->owner->Advance(n)) return int(ISO_CANCELED);
    return int(n);
}

int StreamClose(IsoStream* s) {
    auto* item = static_cast<ItemStream*>(s->data);
    // A file the image got whole: its copy is let finish, so that its outcome is known.
    const bool whole = item->pipe.Delivered() >= item->size;
    CContentPipe::Outcome o = item->pipe.Result(whole);
    item->pipe.Stop();
    // Counted once, and only for a file the image got whole (a cancel ends in the middle).
    if (whole && !item->counted) {
        item->counted = true;
        const bool complete = o.ended && o.ok && o.received >= item->size;
        item->owner->Outcome(complete, item->size - std::min(item->size, o.received));
    }
    return 1;
}

void StreamFree(IsoStream* s) {
    delete static_cast<ItemStream*>(s->data);
}

// One volume's share of the tree: the walk's target, below the volume's folder on the disc.
class CDiscTarget final : public COutputTarget {
public:
    CDiscTarget(CDiscImage& image, IsoDir* root, std::string rootPath)
        : m_image(image), m_root(root), m_rootPath(std::move(rootPath)) {
        m_dirs.push_back(root);
    }

    uint32_t Open() override { return 0; }

    uint32_t CreateFolder(const std::u16string& name) override {
        std::string placed;
        if (uint32_t code = Place(name, placed, platform::kErrAlreadyExists)) return code;
        IsoDir* dir = nullptr;
        int rc = iso_tree_add_new_dir(m_dirs.back(), placed.c_str(), &dir);
        if (rc < 0) return rc == int(ISO_NODE_NAME_NOT_UNIQUE) ? platform::kErrAlreadyExists : platform::kErrInvalidName;
        iso_node_set_permissions(reinterpret_cast<IsoNode*>(dir), 0755);
        m_image.SetTimes(reinterpret_cast<IsoNode*>(dir), 0);
        m_dirs.push_back(dir);
        m_names.push_back(placed);
        return 0;
    }

    void LeaveFolder() override {
        if (m_dirs.size() > 1) {
            m_dirs.pop_back();
            m_names.pop_back();
        }
    }

    uint32_t CreateFile(const std::u16string& name) override {
        return Place(name, m_pending, platform::kErrFileExists);
    }

    FileOutcome WriteFile(CPhysicalDisk& media, const CNode& node, ContentWriter content, const AdvanceFn&) override {
        int rc = m_image.AddFile(m_dirs.back(), m_pending, media, node, content);
        if (rc < 0) {
            FileOutcome out;
            out.complete = false;
            out.writeError = rc == int(ISO_OUT_OF_MEM) ? ENOMEM : EINVAL;
            return out;
        }
        // The content is read when the image is written; its outcome is counted there.
        return {};
    }

    void RemoveRegularFile(const std::u16string& name) override {
        if (CheckOutputName(name)) return;
        std::string n = ToUtf8(DiscName(name, false));
        IsoNode* node = nullptr;
        if (iso_dir_get_node(m_dirs.back(), n.c_str(), &node) != 1 || iso_node_get_type(node) != LIBISO_FILE) return;
        m_image.Removed(uint64_t(iso_stream_get_size(iso_file_get_stream(reinterpret_cast<IsoFile*>(node)))));
        iso_node_remove(node);
    }

    std::string CurrentFolder() const override {
        std::string path = m_rootPath;
        for (const auto& n : m_names) path += "/" + n;
        return path;
    }

    bool OpenLog() override {
        m_log.Open();
        return true;
    }
    void WriteLog(const std::u16string& text) override { m_log.Write(text); }

    // The log goes into the volume's folder as "log.txt", or "log (2).txt", ... when the walk has
    // saved a file of that name.
    void Finish(SaveResult& result) override {
        if (!m_log.IsOpen()) return;
        for (int i = 1; i < 100; ++i) {
            std::string name = i == 1 ? "log.txt" : "log (" + std::to_string(i) + ").txt";
            IsoNode* existing = nullptr;
            if (iso_dir_get_node(m_root, name.c_str(), &existing) == 1) continue;
            uint8_t* buf = m_log.MallocCopy();
            if (!buf) return;
            IsoStream* stream = nullptr;
            if (iso_memory_stream_new(buf, m_log.Size(), &stream) < 0) {
                std::free(buf);
                return;
            }
            IsoFile* file = nullptr;
            if (iso_tree_add_new_file(m_root, name.c_str(), stream, &file) < 0) {
                iso_stream_unref(stream);
                return;
            }
            iso_node_set_permissions(reinterpret_cast<IsoNode*>(file), 0644);
            m_image.SetTimes(reinterpret_cast<IsoNode*>(file), 0);
            result.logPath = m_rootPath + "/" + name;
            return;
        }
    }

private:
    // The disc name for `name` in the current folder: the name cut to Joliet's length, then the
    // cut name with its suffix; `taken` when both are in use (the walk renames then).
    uint32_t Place(const std::u16string& name, std::string& placed, uint32_t taken) {
        if (uint32_t code = CheckOutputName(name)) return code;
        for (bool suffix : {false, true}) {
            std::u16string cut = DiscName(name, suffix);
            if (suffix && cut == DiscName(name, false)) break;
            std::string n = ToUtf8(cut);
            IsoNode* node = nullptr;
            if (iso_dir_get_node(m_dirs.back(), n.c_str(), &node) != 1) {
                placed = n;
                return 0;
            }
            if (name.size() <= kJolietNameUnits) break; // a name of its own length is simply taken
        }
        return taken;
    }

    CDiscImage& m_image;
    IsoDir* m_root;
    std::string m_rootPath;
    std::vector<IsoDir*> m_dirs;
    std::vector<std::string> m_names;
    std::string m_pending;
    CMemoryLog m_log;
};

// The previous sessions of an appendable medium, read through the recorder.
int ReadBlock(IsoDataSource* src, uint32_t lba, uint8_t* buffer) {
    off_t count = 0;
    auto* drive = static_cast<burn_drive*>(src->data);
    int rc = burn_read_data(drive, off_t(lba) * kBlock, reinterpret_cast<char*>(buffer), kBlock, &count, 2);
    return rc > 0 && count == kBlock ? 1 : int(ISO_DATA_SOURCE_FAILURE);
}
int SourceNoop(IsoDataSource*) { return 1; }
void SourceFree(IsoDataSource*) {}

// The recorder, grabbed for the time of one save.
class CRecorder {
public:
    ~CRecorder() { Release(); }
    bool Grab(const std::string& address, std::string& why) {
        char adr[BURN_DRIVE_ADR_LEN] = {};
        std::string a = address;
        // A device path is turned into the library's own address; "stdio:" addresses stay.
        if (a.rfind("stdio:", 0) != 0 && burn_drive_convert_fs_adr(const_cast<char*>(a.c_str()), adr) > 0) a = adr;
        if (burn_drive_scan_and_grab(&m_info, const_cast<char*>(a.c_str()), 1) <= 0 || !m_info) {
            why = LastBurnMessage();
            if (why.empty()) why = "no recorder at " + address;
            m_info = nullptr;
            return false;
        }
        m_drive = m_info[0].drive;
        return true;
    }
    burn_drive* Drive() const { return m_drive; }
    burn_disc_status Status() const {
        burn_disc_status s;
        while ((s = burn_disc_get_status(m_drive)) == BURN_DISC_UNREADY) std::this_thread::sleep_for(kPoll);
        return s;
    }
    // A medium that reads as blank but holds an ISO 9660 volume (rewritable media that are
    // overwritten in place report themselves blank whatever they hold).
    bool HoldsVolume() const {
        std::vector<char> pvd(kBlock);
        off_t count = 0;
        if (burn_read_data(m_drive, 16 * off_t(kBlock), pvd.data(), kBlock, &count, 2 | 4) <= 0 || count != kBlock)
            return false;
        return std::memcmp(pvd.data() + 1, "CD001", 5) == 0;
    }
    // Waits until the recorder is idle, stopping it once when a stop is requested meanwhile.
    void WaitIdle(CDiscImage* image, ScanContext& ctx) {
        bool stopped = false;
        burn_progress p;
        while (burn_drive_get_status(m_drive, &p) != BURN_DRIVE_IDLE) {
            if (!stopped && ctx.op.state.load() == OperationState::Cancel) {
                stopped = true;
                if (image) image->Cancel();
                burn_drive_cancel(m_drive);
            }
            std::this_thread::sleep_for(kPoll);
        }
    }
    void Release() {
        if (!m_info) return;
        burn_drive_release(m_drive, 0);
        burn_drive_info_free(m_info);
        m_info = nullptr;
        m_drive = nullptr;
    }

private:
    burn_drive_info* m_info = nullptr;
    burn_drive* m_drive = nullptr;
};

// Keeps the driver's view of the recorder for the time of one step (erasing or writing).
class BusyScope {
public:
    BusyScope(DiscControl* control, burn_drive* drive, bool erasing) : m_control(control), m_erasing(erasing) {
        if (!m_control) return;
        m_control->SetStop([drive] { burn_drive_cancel(drive); });
        if (erasing)
            m_control->SetErasing(true);
        else
            m_control->SetWriting(true);
    }
    ~BusyScope() {
        if (!m_control) return;
        if (m_erasing)
            m_control->SetErasing(false);
        else
            m_control->SetWriting(false);
        m_control->SetStop({});
    }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    DiscControl* m_control;
    bool m_erasing;
};

IsoWriteOpts* WriteOptions(uint32_t msBlock, bool appendable, bool sizeOnly) {
    IsoWriteOpts* opts = nullptr;
    if (iso_write_opts_new(&opts, 1) < 0) return nullptr;
    iso_write_opts_set_iso_level(opts, 3); // files of 4 GiB and more in several extents
    iso_write_opts_set_rockridge(opts, 1);
    iso_write_opts_set_joliet(opts, 1);
    iso_write_opts_set_joliet_utf16(opts, 1);
    // Times and permissions are the ones set on the tree.
    iso_write_opts_set_replace_mode(opts, 0, 0, 2, 2);
    if (appendable) {
        iso_write_opts_set_appendable(opts, 1);
        iso_write_opts_set_ms_block(opts, msBlock);
    }
    if (sizeOnly) iso_write_opts_set_will_cancel(opts, 1);
    return opts;
}

void Refuse(IUserMessages& messages, const std::string& id, const std::string& fallback, const std::string& detail) {
    UserMessage m = InformationOf(id, fallback);
    if (!detail.empty()) m.text.push_back(Words(" " + detail));
    messages.Show(m);
}

class CDiscSave {
public:
    CDiscSave(const std::vector<DiscVolume>& volumes, ScanContext& ctx, const SaveRequest& base, const DiscRequest& disc,
              IUserMessages& messages)
        : m_volumes(volumes), m_ctx(ctx), m_base(base), m_disc(disc), m_messages(messages),
          m_image(ctx, messages, disc.isoPath.empty() ? disc.recorder : disc.isoPath) {}

    SaveResult Run() {
        m_result.started = true;
        if (!m_image.Create(m_disc.volumeId)) return Failed("", "the image could not be made");
        if (!m_disc.isoPath.empty() ? CheckFile() : OpenRecorder()) {
            if (BuildTree() && !m_result.cancelled) Write();
        } else {
            m_result.archiveFailed = true;
        }
        m_recorder.Release();
        // A disc or image that was not completed holds nothing the user can count on.
        if (m_result.cancelled || m_result.archiveFailed) {
            m_result.folders = m_result.files = m_result.bytes = 0;
            m_result.logPath.clear();
        }
        return m_result;
    }

private:
    // A refusal or failure: the text of `id` (the saving-failed text when empty), then where and why.
    SaveResult Failed(const std::string& id, const std::string& why) {
        m_result.archiveFailed = true;
        ++m_result.writeErrors;
        m_result.writeErrorText = why.empty() ? m_image.Label() : why;
        static const std::pair<const char*, const char*> kFallbacks[] = {
            {"IDS_DISC_HOLDS_DATA", "The disc holds data; erase it to write over it:"},
            {"IDS_DISC_NOT_WRITABLE", "The disc cannot be written:"},
            {"IDS_DISC_NO_MEDIUM", "There is no disc in the recorder:"},
        };
        std::string fallback = kSavingFailed;
        for (const auto& [known, text] : kFallbacks)
            if (id == known) fallback = text;
        Refuse(m_messages, id.empty() ? "IDS_SAVING_FAILED" : id, fallback, m_image.Label() + (why.empty() ? "" : ": " + why));
        return m_result;
    }

    bool CheckFile() {
        if (!m_base.replaceExisting && std::filesystem::exists(std::filesystem::symlink_status(m_disc.isoPath))) {
            Failed("", platform::SysErrorText(platform::kErrFileExists));
            return false;
        }
        return true;
    }

    bool OpenRecorder() {
        std::string why;
        if (!m_recorder.Grab(m_disc.recorder, why)) {
            Failed("", why);
            return false;
        }
        burn_drive* d = m_recorder.Drive();
        burn_disc_status s = m_recorder.Status();
        const bool erasable = burn_disc_erasable(d) == 1;
        switch (s) {
        case BURN_DISC_BLANK:
            if (m_recorder.HoldsVolume() && !m_disc.erase) {
                Failed("IDS_DISC_HOLDS_DATA", "");
                return false;
            }
            return true;
        case BURN_DISC_APPENDABLE:
        case BURN_DISC_FULL:
            if (m_disc.erase) {
                // Asked to erase: a disc that cannot be is refused, never written another way.
                if (!erasable) {
                    Failed("IDS_DISC_NOT_WRITABLE", "the disc is not rewritable and cannot be erased");
                    return false;
                }
                m_eraseFirst = true;
                return true;
            }
            if (s == BURN_DISC_APPENDABLE) return ImportPreviousSessions();
            Failed("IDS_DISC_NOT_WRITABLE", erasable ? "the disc is full; erase it to write over it"
                                                     : "the disc is closed and cannot be written");
            return false;
        case BURN_DISC_EMPTY:
            Failed("IDS_DISC_NO_MEDIUM", "");
            return false;
        default:
            Failed("IDS_DISC_NOT_WRITABLE", "the disc cannot be written by this recorder");
            return false;
        }
    }

    // A new session on an appendable medium keeps what the earlier ones hold: their tree is read
    // in first and the new items go beside it (renamed by the walk where a name is taken).
    bool ImportPreviousSessions() {
        burn_drive* d = m_recorder.Drive();
        int lba = 0, nwa = 0, msc1 = 0;
        burn_write_opts* wo = burn_write_opts_new(d);
        int rc = wo ? burn_disc_track_lba_nwa(d, wo, 0, &lba, &nwa) : 0;
        if (wo) burn_write_opts_free(wo);
        if (rc <= 0) {
            Failed("IDS_DISC_NOT_WRITABLE", "the next writable address of the disc is unknown");
            return false;
        }
        IsoDataSource src{};
        src.refcount = 1;
        src.open = SourceNoop;
        src.close = SourceNoop;
        src.read_block = ReadBlock;
        src.free_data = SourceFree;
        src.data = d;
        IsoReadOpts* ropts = nullptr;
        IsoReadImageFeatures* features = nullptr;
        // Without the start of the last session its tree cannot be kept: a new session written
        // anyway would hide every file the disc holds.
        rc = burn_disc_get_msc1(d, &msc1) > 0 ? iso_read_opts_new(&ropts, 0) : -1;
        if (rc >= 0) {
            iso_read_opts_set_start_block(ropts, uint32_t(msc1));
            rc = iso_image_import(m_image.Image(), &src, ropts, &features);
            iso_read_opts_free(ropts);
        }
        if (features) iso_read_image_features_destroy(features);
        if (rc < 0) {
            Failed("IDS_DISC_NOT_WRITABLE", "the earlier sessions of the disc cannot be read");
            return false;
        }
        m_appendable = true;
        m_msBlock = uint32_t(nwa);
        return true;
    }

    bool BuildTree() {
        for (const DiscVolume& v : m_volumes) {
            if (!v.media || !v.start) continue;
            IsoDir* root = m_image.Root();
            std::string rootPath = m_image.Label();
            if (!v.folder.empty()) {
                IsoDir* dir = nullptr;
                if (iso_tree_add_new_dir(root, v.folder.c_str(), &dir) < 0) {
                    Failed("", "the folder " + v.folder + " could not be made");
                    return false;
                }
                iso_node_set_permissions(reinterpret_cast<IsoNode*>(dir), 0755);
                m_image.SetTimes(reinterpret_cast<IsoNode*>(dir), 0);
                root = dir;
                rootPath += "/" + v.folder;
            }
            CDiscTarget target(m_image, root, rootPath);
            SaveRequest req = m_base;
            req.start = v.start;
            req.destination = rootPath;
            req.destinationIsFat = false;
            req.messages = &m_messages;
            SaveResult r = SaveInto(target, *v.media, m_ctx, req);
            m_result.folders += r.folders + (v.folder.empty() ? 0 : 1);
            m_result.files += r.files;
            m_result.skipped += r.skipped;
            m_result.logged += r.logged;
            m_result.writeErrors += r.writeErrors;
            if (m_result.writeErrorText.empty()) m_result.writeErrorText = r.writeErrorText;
            if (!r.logPath.empty() && m_result.logPath.empty()) m_result.logPath = r.logPath;
            if (r.cancelled) {
                m_result.cancelled = true;
                return false;
            }
        }
        return true;
    }

    void Write() {
        // The size of the image first, without producing it: a medium or folder too small is
        // refused before a single byte is written.
        BurnSource* sizer = ImageSource(true);
        if (!sizer) {
            Failed("", "the image could not be laid out");
            return;
        }
        m_imageBytes = uint64_t(sizer->get_size(sizer));
        sizer->cancel(sizer);
        burn_source_free(sizer);
        // A medium that is erased first is measured once it is blank.
        if (!m_eraseFirst && !Fits()) return;
        m_ctx.Progress(0, int64_t(m_image.Total()), 1);

        BurnSource* src = ImageSource(false);
        if (!src) {
            Failed("", "the image could not be made");
            return;
        }
        if (!m_disc.isoPath.empty())
            WriteFile(src);
        else
            Burn(src);
        burn_source_free(src);
        if (m_image.Cancelled() || (m_disc.control && m_disc.control->Stopped())) m_result.cancelled = true;
        if (!m_result.cancelled && !m_result.archiveFailed) {
            m_result.bytes = m_image.Done();
            m_result.incomplete += m_image.Incomplete();
            m_result.unreadableBytes += m_image.Unreadable();
        }
        m_ctx.Progress(int64_t(m_image.Done()), int64_t(m_image.Total()), 1);
    }

    // The image writer's output (with `sizeOnly`, one that is only measured); null on failure.
    BurnSource* ImageSource(bool sizeOnly) {
        IsoWriteOpts* opts = WriteOptions(m_msBlock, m_appendable, sizeOnly);
        BurnSource* src = nullptr;
        if (opts && CreateImageSource(m_image.Image(), opts, &src) < 0) src = nullptr;
        if (opts) iso_write_opts_free(opts);
        return src;
    }

    // Whether the image fits the file's folder or the medium; refuses with both sizes when not.
    bool Fits() {
        uint64_t room = 0;
        if (!m_disc.isoPath.empty()) {
            std::filesystem::path folder = std::filesystem::path(m_disc.isoPath).parent_path();
            struct statvfs vfs;
            room = ::statvfs(folder.empty() ? "." : folder.c_str(), &vfs) == 0 ? uint64_t(vfs.f_bavail) * vfs.f_frsize : 0;
        } else {
            burn_write_opts* wo = burn_write_opts_new(m_recorder.Drive());
            room = uint64_t(std::max<off_t>(0, burn_disc_available_space(m_recorder.Drive(), wo)));
            if (wo) burn_write_opts_free(wo);
        }
        if (m_disc.capacityLimit) room = std::min(room, m_disc.capacityLimit);
        if (m_imageBytes <= room) return true;
        m_result.archiveFailed = true;
        ++m_result.writeErrors;
        m_result.writeErrorText = "the image needs " + SizeText(m_imageBytes) + ", the medium holds " + SizeText(room);
        UserMessage m = InformationOf("IDS_DISC_TOO_SMALL", "The selected files do not fit on the medium:");
        m.text.push_back(Words(" " + m_result.writeErrorText));
        m_messages.Show(m);
        return false;
    }

    void WriteFile(BurnSource* src) {
        platform::AtomicFile out;
        if (!out.Create(m_disc.isoPath, m_base.replaceExisting)) {
            Failed("", platform::ErrnoText(out.Error()));
            return;
        }
        std::vector<unsigned char> buf(size_t(kBlock) * kCopyBlocks);
        // The image writer hands out whole requests only: a request reaching past the end of the
        // image gets nothing, so the last one asks for exactly what is left.
        uint64_t left = uint64_t(std::max<off_t>(0, src->get_size(src)));
        for (;;) {
            const int want = int(std::min<uint64_t>(buf.size(), left));
            int n = want == 0 ? 0
                    : src->read_xt ? src->read_xt(src, buf.data(), want)
                                   : src->read(src, buf.data(), want);
            if (n < 0 || m_image.Cancelled()) {
                src->cancel(src);
                out.Abort();
                if (m_image.Cancelled()) m_result.cancelled = true;
                else Failed("", "the image could not be made");
                return;
            }
            if (n == 0) break;
            left -= std::min<uint64_t>(left, uint64_t(n));
            if (!out.Write(buf.data(), size_t(n))) {
                src->cancel(src);
                out.Abort();
                if (out.Error() == ENOSPC || out.Error() == EDQUOT) m_result.diskFull = true;
                Failed("", platform::ErrnoText(out.Error()));
                return;
            }
        }
        if (left) {
            out.Abort();
            Failed("", "the image ended early");
            return;
        }
        if (!out.Commit()) Failed("", platform::ErrnoText(out.Error()));
    }

    void Burn(BurnSource* isoSource) {
        burn_drive* d = m_recorder.Drive();
        DiscControl* control = m_disc.control;
        if (m_eraseFirst) {
            {
                BusyScope busy(control, d, true);
                burn_disc_erase(d, 1);
                m_recorder.WaitIdle(nullptr, m_ctx);
            }
            if ((control && control->Stopped()) || m_ctx.op.state.load() == OperationState::Cancel) {
                m_result.cancelled = true;
                return;
            }
            if (m_recorder.Status() != BURN_DISC_BLANK) {
                Failed("IDS_DISC_NOT_WRITABLE", "the disc could not be erased: " + LastBurnMessage());
                return;
            }
            if (!Fits()) return;
        }
        BurnSource* fifo = burn_fifo_source_new(isoSource, int(kBlock), kFifoChunks, 0);
        burn_write_opts* wo = burn_write_opts_new(d);
        burn_disc* disc = burn_disc_create();
        burn_session* session = burn_session_create();
        burn_track* track = burn_track_create();
        bool ready = fifo && wo && disc && session && track;
        if (ready) {
            burn_disc_add_session(disc, session, BURN_POS_END);
            burn_track_define_data(track, 0, 0, 1, BURN_MODE1);
            ready = burn_track_set_source(track, fifo) == BURN_SOURCE_OK;
            burn_session_add_track(session, track, BURN_POS_END);
            burn_write_opts_set_perform_opc(wo, 0);
            burn_write_opts_set_underrun_proof(wo, 1);
            // The session is left open where the medium allows, so that later saves can append.
            burn_write_opts_set_multi(wo, 1);
        }
        char reasons[BURN_REASONS_LEN] = {};
        if (ready && burn_write_opts_auto_write_type(wo, disc, reasons, 2) == BURN_WRITE_NONE) {
            burn_write_opts_set_multi(wo, 0);
            reasons[0] = 0;
        }
        if (ready && burn_write_opts_auto_write_type(wo, disc, reasons, 0) == BURN_WRITE_NONE) {
            ready = false;
            Failed("IDS_DISC_NOT_WRITABLE", reasons);
        } else if (!ready) {
            Failed("", "the recorder could not be prepared");
        }
        if (ready && (!control || !control->Stopped())) {
            BusyScope busy(control, d, false);
            burn_disc_write(wo, disc);
            m_recorder.WaitIdle(&m_image, m_ctx);
            bool wroteWell = burn_drive_wrote_well(d) == 1;
            if ((control && control->Stopped()) || m_image.Cancelled() ||
                m_ctx.op.state.load() == OperationState::Cancel)
                m_result.cancelled = true;
            else if (!wroteWell)
                Failed("", "writing the disc failed: " + LastBurnMessage());
        }
        if (track) burn_track_free(track);
        if (session) burn_session_free(session);
        if (disc) burn_disc_free(disc);
        if (wo) burn_write_opts_free(wo);
        if (fifo) burn_source_free(fifo);
    }

    const std::vector<DiscVolume>& m_volumes;
    ScanContext& m_ctx;
    const SaveRequest& m_base;
    const DiscRequest& m_disc;
    IUserMessages& m_messages;
    CDiscImage m_image;
    CRecorder m_recorder;
    bool m_eraseFirst = false;
    bool m_appendable = false;
    uint32_t m_msBlock = 0;
    uint64_t m_imageBytes = 0;
    SaveResult m_result;
};

} // namespace

std::string RecorderInfo::Name() const {
    std::string n = Trim(vendor + " " + product);
    return n.empty() ? address : n + " (" + address + ")";
}

std::vector<RecorderInfo> ListRecorders() {
    InitLibraries();
    std::vector<RecorderInfo> out;
    burn_drive_info* infos = nullptr;
    unsigned int count = 0;
    while (burn_drive_scan(&infos, &count) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    for (unsigned int i = 0; infos && i < count; ++i) {
        char adr[BURN_DRIVE_ADR_LEN] = {};
        RecorderInfo r;
        if (burn_drive_get_adr(&infos[i], adr) > 0) r.address = adr;
        r.vendor = Trim(infos[i].vendor);
        r.product = Trim(infos[i].product);
        r.revision = Trim(infos[i].revision);
        out.push_back(std::move(r));
    }
    if (infos) burn_drive_info_free(infos);
    return out;
}

std::string RecorderName(const std::string& address) {
    if (address.rfind("stdio:", 0) == 0) return address;
    for (const RecorderInfo& r : ListRecorders())
        if (r.address == address) return r.Name();
    return address;
}

std::u16string DiscName(const std::u16string& name, bool suffix) {
    if (name.size() <= kJolietNameUnits && !suffix) return name;
    size_t dot = name.rfind(u'.');
    // An extension is what follows the last dot, when it is short and the dot does not start the name.
    std::u16string ext = dot != std::u16string::npos && dot > 0 && name.size() - dot <= 16 ? name.substr(dot) : u"";
    std::u16string tag;
    if (suffix) {
        static const char16_t kHex[] = u"0123456789ABCDEF";
        uint16_t h = Fnv16(name);
        tag = u"~";
        for (int shift = 12; shift >= 0; shift -= 4) tag.push_back(kHex[(h >> shift) & 15]);
    }
    const size_t stem = name.size() - ext.size();
    const size_t room = kJolietNameUnits - ext.size() - tag.size();
    return Head(name.substr(0, stem), room) + tag + ext;
}

SaveResult SaveToDisc(const std::vector<DiscVolume>& volumes, ScanContext& ctx, const SaveRequest& base,
                      const DiscRequest& disc) {
    InitLibraries();
    CSilentMessages silent;
    IUserMessages& messages = base.messages ? *base.messages : silent;
    CDiscSave save(volumes, ctx, base, disc, messages);
    return save.Run();
}

} // namespace kestrin
