// Saving into a zip archive. The archive is assembled when it is closed: every file entry is a
// source that, when the archive reads it, pulls the item's content through a content pipe, so no
// file is ever held in memory whole. Entries whose size says 4 GiB or more are written in the
// zip64 form.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include "fs/CNode.h"
#include "output/ContentPipe.h"
#include "output/MemoryLog.h"
#include "output/NodeTimes.h"
#include "output/OutputTarget.h"
#include "output/Saver.h"
#include "platform/AtomicFile.h"
#include "platform/FileIdentity.h"
#include "platform/Platform.h"
#include "util/Text.h"

namespace kestrin {

namespace {

// Longest entry name component that an unpacking file system will take.
constexpr size_t kMaxComponentBytes = 255;

// Formats that are compressed already are stored; deflating them costs time and gains nothing.
bool AlreadyCompressed(const std::string& name) {
    static const char* const kExt[] = {".jpg", ".jpeg", ".png", ".gif", ".zip", ".7z", ".rar", ".gz", ".bz2",
                                       ".xz", ".zst", ".cab", ".arj", ".mp3", ".mp4", ".m4a", ".m4v", ".m4b",
                                       ".mov", ".3gp", ".avi", ".mkv", ".docx", ".xlsx", ".pptx", ".webp"};
    for (const char* e : kExt) {
        size_t n = std::strlen(e);
        if (name.size() >= n && EqualsNoCase(std::string_view(name).substr(name.size() - n), e)) return true;
    }
    return false;
}

class CZipTarget;

// One entry: where its content comes from, and the pipe it is read through.
struct EntrySource {
    CZipTarget* owner = nullptr;
    CPhysicalDisk* media = nullptr;
    const CNode* node = nullptr;
    ContentWriter content = nullptr;
    AdvanceFn advance;
    int64_t mtime = 0;
    bool hasTime = false;
    CContentPipe pipe;
    zip_error_t error;
};

zip_int64_t EntryCallback(void* user, void* data, zip_uint64_t len, zip_source_cmd_t cmd);

class CZipTarget final : public COutputTarget {
public:
    CZipTarget(std::string path, IUserMessages& messages, bool replace)
        : m_path(std::move(path)), m_messages(messages), m_replace(replace) {}
    ~CZipTarget() override {
        if (m_zip) zip_discard(m_zip);
        if (!m_temp.empty()) ::unlink(m_temp.c_str());
    }

    // The archive is built under a temporary name beside its final one and moved into place only
    // when complete: a cancel or a failure leaves no half archive, and an existing file of the
    // final name is replaced only when the user agreed.
    uint32_t Open() override {
        struct stat st;
        if (!m_replace && ::lstat(m_path.c_str(), &st) == 0) return platform::kErrFileExists;
        int error = 0;
        m_temp = platform::MakeTempBeside(m_path, error);
        if (m_temp.empty()) return platform::SysCodeFromErrno(error);
        int err = 0;
        m_zip = zip_open(m_temp.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
        if (!m_zip) return errno ? platform::SysCodeFromErrno(errno) : uint32_t(platform::kErrAccessDenied);
        return 0;
    }

    uint32_t CreateFolder(const std::u16string& name) override {
        std::string full;
        if (uint32_t code = EntryName(name, full)) return code;
        if (Exists(full)) return platform::kErrAlreadyExists;
        if (zip_dir_add(m_zip, full.c_str(), ZIP_FL_ENC_UTF_8) < 0) return platform::kErrAlreadyExists;
        m_prefix.push_back(full + "/");
        return 0;
    }

    void LeaveFolder() override {
        if (!m_prefix.empty()) m_prefix.pop_back();
    }

    uint32_t CreateFile(const std::u16string& name) override {
        std::string full;
        if (uint32_t code = EntryName(name, full)) return code;
        if (Exists(full)) return platform::kErrFileExists;
        m_pending = full;
        return 0;
    }

    FileOutcome WriteFile(CPhysicalDisk& media, const CNode& node, ContentWriter content,
                          const AdvanceFn& advance) override {
        auto* s = new EntrySource;
        s->owner = this;
        s->media = &media;
        s->node = &node;
        s->content = content;
        s->advance = advance;
        zip_error_init(&s->error);
        if (ItemTimes full; ReadNodeTimes(media, node, full) && full.modified != kNoTime) {
            s->mtime = UnixSeconds(full.modified);
            s->hasTime = true;
        } else {
            s->hasTime = LocalTimeOfDosDate(SaveDateOf(node.modifiedDate, node.createdDate), s->mtime);
        }
        zip_source_t* src = zip_source_function_create(EntryCallback, s, nullptr);
        if (!src) {
            zip_error_fini(&s->error);
            delete s;
            return {false, false};
        }
        zip_int64_t index = zip_file_add(m_zip, m_pending.c_str(), src, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(src);
            return {false, false};
        }
        if (AlreadyCompressed(m_pending)) zip_set_file_compression(m_zip, zip_uint64_t(index), ZIP_CM_STORE, 0);
        if (s->hasTime) zip_file_set_mtime(m_zip, zip_uint64_t(index), time_t(s->mtime), 0);
        // The content is read when the archive is closed; its outcome is counted there.
        return {true, false};
    }

    // Replacing inside an archive being built is only possible for an entry of this save.
    void RemoveRegularFile(const std::u16string& name) override {
        std::string full;
        if (EntryName(name, full)) return;
        zip_int64_t i = zip_name_locate(m_zip, full.c_str(), ZIP_FL_ENC_UTF_8);
        if (i >= 0) zip_delete(m_zip, zip_uint64_t(i));
    }

    std::string CurrentFolder() const override {
        if (m_prefix.empty()) return m_path;
        return m_path + "/" + m_prefix.back().substr(0, m_prefix.back().size() - 1);
    }

    bool OpenLog() override {
        m_log.Open();
        return true;
    }
    void WriteLog(const std::u16string& text) override { m_log.Write(text); }

    void Finish(SaveResult& result) override {
        if (m_log.IsOpen()) {
            if (uint8_t* copy = m_log.MallocCopy()) {
                zip_source_t* src = zip_source_buffer(m_zip, copy, m_log.Size(), 1);
                if (!src)
                    std::free(copy);
                else if (zip_file_add(m_zip, "log.txt", src, ZIP_FL_ENC_UTF_8 | ZIP_FL_OVERWRITE) < 0)
                    zip_source_free(src);
                else
                    result.logPath = m_path + "/log.txt";
            }
        }
        std::string why;
        int sysError = 0;
        if (zip_close(m_zip) != 0) {
            why = zip_strerror(m_zip);
            sysError = zip_error_code_system(zip_get_error(m_zip));
            zip_discard(m_zip);
        } else {
            int error = 0;
            bool moved = m_replace ? ::rename(m_temp.c_str(), m_path.c_str()) == 0
                                   : platform::RenameNoReplace(m_temp, m_path, error);
            if (m_replace && !moved) error = errno;
            if (moved) {
                m_temp.clear();
            } else {
                sysError = error;
                why = platform::ErrnoText(error);
            }
        }
        m_zip = nullptr;
        if (!m_temp.empty()) {
            ::unlink(m_temp.c_str());
            m_temp.clear();
        }
        if (!why.empty()) {
            result.archiveFailed = true;
            if (!m_cancelled) {
                ++result.writeErrors;
                if (sysError == ENOSPC || sysError == EDQUOT) result.diskFull = true;
                result.writeErrorText = sysError > 0 ? platform::ErrnoText(sysError) : why;
                UserMessage m = InformationOf("IDS_SAVING_FAILED", kSavingFailed);
                m.text.push_back(Words(" " + m_path + ": " + why));
                m_messages.Show(m);
            }
            result.logPath.clear();
        }
        result.incomplete += m_incomplete;
        if (m_cancelled) result.cancelled = true;
    }

    void EntryDone(bool ok) {
        if (!ok) ++m_incomplete;
    }
    void Cancelled() { m_cancelled = true; }

private:
    uint32_t EntryName(const std::u16string& name, std::string& full) const {
        if (uint32_t code = CheckOutputName(name)) return code;
        std::string n = ToUtf8(name);
        if (n.size() > kMaxComponentBytes) return platform::kErrFilenameTooLong;
        full = (m_prefix.empty() ? std::string() : m_prefix.back()) + n;
        return 0;
    }
    bool Exists(const std::string& full) const {
        return zip_name_locate(m_zip, full.c_str(), ZIP_FL_ENC_UTF_8) >= 0 ||
               zip_name_locate(m_zip, (full + "/").c_str(), ZIP_FL_ENC_UTF_8) >= 0;
    }

    std::string m_path;
    IUserMessages& m_messages;
    bool m_replace = false;
    std::string m_temp;
    zip_t* m_zip = nullptr;
    std::vector<std::string> m_prefix;
    std::string m_pending;
    CMemoryLog m_log;
    uint64_t m_incomplete = 0;
    bool m_cancelled = false;
};

zip_int64_t EntryCallback(void* user, void* data, zip_uint64_t len, zip_source_cmd_t cmd) {
    auto* s = static_cast<EntrySource*>(user);
    switch (cmd) {
    case ZIP_SOURCE_OPEN:
        s->pipe.Start(*s->media, *s->node, s->content);
        return 0;
    case ZIP_SOURCE_READ: {
        const size_t want = size_t(std::min<zip_uint64_t>(len, CContentPipe::kMaxBuffer));
        size_t n = s->pipe.ReadSome(static_cast<uint8_t*>(data), want);
        if (n && s->advance && !s->advance(n)) {
            s->owner->Cancelled();
            zip_error_set(&s->error, ZIP_ER_CANCELLED, 0);
            return -1;
        }
        return zip_int64_t(n);
    }
    case ZIP_SOURCE_CLOSE: {
        CContentPipe::Outcome o = s->pipe.Result(false);
        s->pipe.Stop();
        s->owner->EntryDone(o.ended && o.ok);
        return 0;
    }
    case ZIP_SOURCE_STAT: {
        if (len < sizeof(zip_stat_t)) return -1;
        auto* st = static_cast<zip_stat_t*>(data);
        zip_stat_init(st);
        // The announced size decides whether the entry needs the zip64 form.
        st->size = s->node->size;
        st->valid |= ZIP_STAT_SIZE;
        if (s->hasTime) {
            st->mtime = time_t(s->mtime);
            st->valid |= ZIP_STAT_MTIME;
        }
        return sizeof(zip_stat_t);
    }
    case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&s->error, data, len);
    case ZIP_SOURCE_FREE:
        s->pipe.Stop();
        zip_error_fini(&s->error);
        delete s;
        return 0;
    case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                              ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
    default:
        zip_error_set(&s->error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
}

} // namespace

std::unique_ptr<COutputTarget> MakeZipTarget(const std::string& path, IUserMessages& messages, bool replace) {
    return std::make_unique<CZipTarget>(path, messages, replace);
}

} // namespace kestrin
