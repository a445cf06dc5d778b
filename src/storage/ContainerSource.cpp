#include "storage/ContainerSource.h"

#include <libewf.h>
#include <libqcow.h>
#include <libvhdi.h>
#include <libvmdk.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "storage/ContainerMap.h"

namespace kestrin {

namespace {

// Where each format announces itself: all at byte 0 of the file, but a fixed VHD, which keeps
// its footer only at the end (a dynamic one has a copy at byte 0 too).
constexpr std::string_view kEwfSignature{"EVF\x09\x0d\x0a\xff\x00", 8};
constexpr std::string_view kVhdxSignature{"vhdxfile"};
constexpr std::string_view kVhdFooterCookie{"conectix"};
constexpr size_t kVhdFooterBytes = 512;
constexpr std::string_view kQcowSignature{"QFI\xfb", 4};
constexpr std::string_view kVmdkSparseSignature{"KDMV"};  // hosted sparse extent
constexpr std::string_view kVmdkCowdSignature{"COWD"};    // ESX sparse extent
constexpr std::string_view kVmdkDescriptor{"# Disk DescriptorFile"};
// Parents of parents are followed this deep, no further (an image may name itself).
constexpr int kMaxParentDepth = 16;

bool StartsWith(const uint8_t* bytes, size_t n, std::string_view magic) {
    return n >= magic.size() && std::memcmp(bytes, magic.data(), magic.size()) == 0;
}

// libyal errors are all intptr_t handles with the same sprint/free pair.
using ErrorSprint = int (*)(intptr_t*, char*, size_t);
using ErrorFree = void (*)(intptr_t**);

// The library's innermost reason (the first line of its backtrace) without the name of the
// function that gave it, on one line; the error is freed.
std::string TakeError(intptr_t*& error, ErrorSprint sprint, ErrorFree release) {
    if (!error) return {};
    char text[4096] = {};
    sprint(error, text, sizeof text - 1);
    release(&error);
    std::string_view s(text);
    s = s.substr(0, s.find('\n'));
    size_t colon = s.find(": ");
    const bool named = s.substr(0, 3) == "lib" && s.substr(0, colon).find(' ') == std::string_view::npos;
    if (colon != std::string_view::npos && named) s.remove_prefix(colon + 2);
    while (!s.empty() && (s.back() == '\r' || s.back() == ' ' || s.back() == '.')) s.remove_suffix(1);
    std::string out;
    for (char c : s) out += (uint8_t(c) < 0x20 || c == 0x7F) ? ' ' : c;
    return out;
}

std::string EwfError(libewf_error_t*& e) { return TakeError(e, libewf_error_backtrace_sprint, libewf_error_free); }
std::string VhdiError(libvhdi_error_t*& e) { return TakeError(e, libvhdi_error_backtrace_sprint, libvhdi_error_free); }
std::string VmdkError(libvmdk_error_t*& e) { return TakeError(e, libvmdk_error_backtrace_sprint, libvmdk_error_free); }
std::string QcowError(libqcow_error_t*& e) { return TakeError(e, libqcow_error_backtrace_sprint, libqcow_error_free); }

// `name` as an image stores it (a Windows path, a relative one, or a bare file name), looked up
// beside `child`: the path as it stands, then its last component in the child's folder.
std::string ResolveRelated(const std::string& child, const std::string& name) {
    namespace fs = std::filesystem;
    std::error_code ec;
    std::string slashed = name;
    std::replace(slashed.begin(), slashed.end(), '\\', '/');
    fs::path dir = fs::path(child).parent_path();
    std::vector<fs::path> tries;
    if (!slashed.empty() && slashed.front() == '/') tries.emplace_back(slashed);
    else if (slashed.size() < 2 || slashed[1] != ':') tries.push_back(dir / slashed);
    size_t cut = slashed.find_last_of('/');
    tries.push_back(dir / (cut == std::string::npos ? slashed : slashed.substr(cut + 1)));
    for (const fs::path& p : tries)
        if (!p.filename().empty() && fs::is_regular_file(p, ec)) return p.string();
    return {};
}

// A string the library hands out through a size query and a fill; "" when it has none.
template <typename H, typename SizeFn, typename GetFn>
std::string LibString(H* handle, SizeFn sizeFn, GetFn getFn) {
    size_t size = 0;
    if (sizeFn(handle, &size, nullptr) != 1 || size == 0 || size > 65536) return {};
    std::string s(size, '\0');
    if (getFn(handle, reinterpret_cast<uint8_t*>(s.data()), size, nullptr) != 1) return {};
    s.resize(std::strlen(s.c_str()));
    return s;
}

using Kind = ContainerProblem::Kind;

ContainerProblem Problem(Kind kind, std::string name, std::string detail = {}) {
    ContainerProblem p;
    p.kind = kind;
    p.name = std::move(name);
    p.detail = std::move(detail);
    return p;
}

} // namespace

const char* ContainerFormatName(ContainerFormat format) {
    switch (format) {
    case ContainerFormat::Ewf: return "E01";
    case ContainerFormat::Vhd: return "VHD";
    case ContainerFormat::Vhdx: return "VHDX";
    case ContainerFormat::Vmdk: return "VMDK";
    case ContainerFormat::Qcow: return "QCOW2";
    case ContainerFormat::None: break;
    }
    return "";
}

ContainerFormat DetectContainer(ByteSource& file) {
    uint8_t head[64] = {};
    long long n = file.ReadAt(head, sizeof head, 0);
    if (n <= 0) return ContainerFormat::None;
    size_t got = size_t(n);
    if (StartsWith(head, got, kEwfSignature)) return ContainerFormat::Ewf;
    if (StartsWith(head, got, kVhdxSignature)) return ContainerFormat::Vhdx;
    if (StartsWith(head, got, kVhdFooterCookie)) return ContainerFormat::Vhd;
    if (StartsWith(head, got, kQcowSignature)) return ContainerFormat::Qcow;
    if (StartsWith(head, got, kVmdkSparseSignature) || StartsWith(head, got, kVmdkCowdSignature) ||
        StartsWith(head, got, kVmdkDescriptor))
        return ContainerFormat::Vmdk;
    uint64_t size = file.Size();
    if (size >= 2 * kVhdFooterBytes) {
        uint8_t tail[16] = {};
        if (file.ReadAt(tail, sizeof tail, size - kVhdFooterBytes) == (long long)sizeof tail &&
            StartsWith(tail, sizeof tail, kVhdFooterCookie))
            return ContainerFormat::Vhd;
    }
    return ContainerFormat::None;
}

struct ContainerSource::Backend {
    virtual ~Backend() = default;
    virtual long long Read(void* buf, size_t len, uint64_t offset) = 0;
    std::vector<std::string> files; // every file read: segments, extents, parents
};

namespace {

// ---- EWF: the set of segments libewf's glob finds from the first one -----------------------

struct EwfBackend final : ContainerSource::Backend {
    libewf_handle_t* handle = nullptr;
    ~EwfBackend() override {
        if (!handle) return;
        libewf_handle_close(handle, nullptr);
        libewf_handle_free(&handle, nullptr);
    }
    long long Read(void* buf, size_t len, uint64_t offset) override {
        return libewf_handle_read_random(handle, buf, len, off64_t(offset), nullptr);
    }
};

std::unique_ptr<EwfBackend> OpenEwf(const std::string& path, uint64_t& size, uint32_t& sectorSize,
                                    ContainerProblem& problem) {
    auto b = std::make_unique<EwfBackend>();
    libewf_error_t* err = nullptr;
    char** names = nullptr;
    int count = 0;
    // The glob needs a segment name (.E01, .s01, ...); a renamed single file is opened alone.
    if (libewf_glob(path.c_str(), path.size(), LIBEWF_FORMAT_UNKNOWN, &names, &count, &err) != 1) {
        libewf_error_free(&err);
        names = nullptr;
        count = 0;
    }
    char* alone[] = {const_cast<char*>(path.c_str())};
    char** set = count > 0 ? names : alone;
    bool ok = libewf_handle_initialize(&b->handle, &err) == 1 &&
              libewf_handle_open(b->handle, set, count > 0 ? count : 1, LIBEWF_OPEN_READ, &err) == 1;
    for (int i = 0; i < count; ++i) b->files.emplace_back(names[i]);
    if (count <= 0) b->files.push_back(path);
    if (names) libewf_glob_free(names, count, nullptr);
    size64_t media = 0;
    uint32_t bps = 0;
    ok = ok && libewf_handle_get_media_size(b->handle, &media, &err) == 1 &&
         libewf_handle_get_bytes_per_sector(b->handle, &bps, &err) == 1;
    if (!ok) {
        problem = Problem(Kind::Damaged, {}, EwfError(err));
        return nullptr;
    }
    // A cut or missing segment would otherwise read as zeros.
    if (libewf_handle_segment_files_corrupted(b->handle, nullptr) != 0) {
        problem = Problem(Kind::Damaged, {}, "its segment files are incomplete or damaged");
        return nullptr;
    }
    size = media;
    sectorSize = bps;
    return b;
}

// ---- VHD and VHDX: a differencing disk reads what it does not hold from its parent ---------

struct VhdiBackend final : ContainerSource::Backend {
    std::vector<libvhdi_file_t*> chain; // the image first, then its parent, ...
    ~VhdiBackend() override {
        for (libvhdi_file_t*& f : chain) {
            libvhdi_file_close(f, nullptr);
            libvhdi_file_free(&f, nullptr);
        }
    }
    long long Read(void* buf, size_t len, uint64_t offset) override {
        return libvhdi_file_read_buffer_at_offset(chain.front(), buf, len, off64_t(offset), nullptr);
    }
};

bool OpenVhdiChain(VhdiBackend& b, const std::string& path, int depth, ContainerProblem& problem) {
    libvhdi_error_t* err = nullptr;
    libvhdi_file_t* f = nullptr;
    if (libvhdi_file_initialize(&f, &err) != 1) {
        problem = Problem(Kind::Damaged, {}, VhdiError(err));
        return false;
    }
    if (libvhdi_file_open(f, path.c_str(), LIBVHDI_OPEN_READ, &err) != 1) {
        libvhdi_file_free(&f, nullptr);
        problem = Problem(Kind::Damaged, {}, VhdiError(err));
        return false;
    }
    b.chain.push_back(f);
    b.files.push_back(path);
    const size_t me = b.chain.size() - 1;
    uint32_t type = 0;
    if (libvhdi_file_get_disk_type(f, &type, nullptr) != 1 || type != LIBVHDI_DISK_TYPE_DIFFERENTIAL) return true;
    std::string parent =
        LibString(f, libvhdi_file_get_utf8_parent_filename_size, libvhdi_file_get_utf8_parent_filename);
    std::string found = parent.empty() ? std::string() : ResolveRelated(path, parent);
    if (found.empty() || depth >= kMaxParentDepth) {
        problem = Problem(Kind::MissingParent, parent.empty() ? "?" : parent);
        return false;
    }
    if (!OpenVhdiChain(b, found, depth + 1, problem)) return false;
    // The chain holds every generation in order: the parent is the one right after this file.
    if (libvhdi_file_set_parent_file(f, b.chain[me + 1], &err) != 1) {
        problem = Problem(Kind::Damaged, parent, VhdiError(err));
        return false;
    }
    return true;
}

// ---- VMDK: a descriptor with its extents, and a parent for a delta disk --------------------

struct VmdkBackend final : ContainerSource::Backend {
    std::vector<libvmdk_handle_t*> chain;
    // The image's own extents in disk order (its parents' are not kept): type, bytes, file.
    struct Extent {
        int type = 0;
        uint64_t bytes = 0;
        std::string path;
    };
    std::vector<Extent> extents;
    ~VmdkBackend() override {
        for (libvmdk_handle_t*& h : chain) {
            libvmdk_handle_close(h, nullptr);
            libvmdk_handle_free(&h, nullptr);
        }
    }
    long long Read(void* buf, size_t len, uint64_t offset) override {
        return libvmdk_handle_read_buffer_at_offset(chain.front(), buf, len, off64_t(offset), nullptr);
    }
};

bool OpenVmdkChain(VmdkBackend& b, const std::string& path, int depth, ContainerProblem& problem) {
    libvmdk_error_t* err = nullptr;
    libvmdk_handle_t* h = nullptr;
    if (libvmdk_handle_initialize(&h, &err) != 1) {
        problem = Problem(Kind::Damaged, {}, VmdkError(err));
        return false;
    }
    if (libvmdk_handle_open(h, path.c_str(), LIBVMDK_OPEN_READ, &err) != 1) {
        libvmdk_handle_free(&h, nullptr);
        problem = Problem(Kind::Damaged, {}, VmdkError(err));
        return false;
    }
    b.chain.push_back(h);
    b.files.push_back(path);
    const size_t me = b.chain.size() - 1;
    // Extents are named relative to the descriptor: each must be there before they are opened.
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const std::string dir = folder.empty() ? std::string(".") : folder.string();
    libvmdk_handle_set_extent_data_files_path(h, dir.c_str(), dir.size(), nullptr);
    int extents = 0;
    libvmdk_handle_get_number_of_extents(h, &extents, nullptr);
    for (int i = 0; i < extents; ++i) {
        libvmdk_extent_descriptor_t* d = nullptr;
        if (libvmdk_handle_get_extent_descriptor(h, i, &d, nullptr) != 1) continue;
        int type = 0;
        off64_t extentOffset = 0;
        size64_t extentBytes = 0;
        libvmdk_extent_descriptor_get_type(d, &type, nullptr);
        if (libvmdk_extent_descriptor_get_range(d, &extentOffset, &extentBytes, nullptr) != 1) extentBytes = 0;
        std::string name = LibString(d, libvmdk_extent_descriptor_get_utf8_filename_size,
                                     libvmdk_extent_descriptor_get_utf8_filename);
        libvmdk_extent_descriptor_free(&d, nullptr);
        if (depth == 0) b.extents.push_back({type, extentBytes, {}});
        if (type == LIBVMDK_EXTENT_TYPE_ZERO || name.empty()) continue;
        std::string found = ResolveRelated(path, name);
        if (found.empty()) {
            problem = Problem(Kind::MissingPart, name);
            return false;
        }
        if (depth == 0) b.extents.back().path = found;
        if (std::filesystem::path(found) != std::filesystem::path(path)) b.files.push_back(found);
    }
    if (libvmdk_handle_open_extent_data_files(h, &err) != 1) {
        problem = Problem(Kind::Damaged, {}, VmdkError(err));
        return false;
    }
    std::string parent =
        LibString(h, libvmdk_handle_get_utf8_parent_filename_size, libvmdk_handle_get_utf8_parent_filename);
    if (parent.empty()) return true;
    std::string found = ResolveRelated(path, parent);
    if (found.empty() || depth >= kMaxParentDepth) {
        problem = Problem(Kind::MissingParent, parent);
        return false;
    }
    if (!OpenVmdkChain(b, found, depth + 1, problem)) return false;
    if (libvmdk_handle_set_parent_handle(h, b.chain[me + 1], &err) != 1) {
        problem = Problem(Kind::Damaged, parent, VmdkError(err));
        return false;
    }
    return true;
}

// ---- QCOW2: a backing file (itself QCOW) under the image's unallocated clusters ------------

struct QcowBackend final : ContainerSource::Backend {
    std::vector<libqcow_file_t*> chain;
    ~QcowBackend() override {
        for (libqcow_file_t*& f : chain) {
            libqcow_file_close(f, nullptr);
            libqcow_file_free(&f, nullptr);
        }
    }
    long long Read(void* buf, size_t len, uint64_t offset) override {
        return libqcow_file_read_buffer_at_offset(chain.front(), buf, len, off64_t(offset), nullptr);
    }
};

bool OpenQcowChain(QcowBackend& b, const std::string& path, int depth, ContainerProblem& problem) {
    libqcow_error_t* err = nullptr;
    libqcow_file_t* f = nullptr;
    if (libqcow_file_initialize(&f, &err) != 1) {
        problem = Problem(Kind::Damaged, {}, QcowError(err));
        return false;
    }
    if (libqcow_file_open(f, path.c_str(), LIBQCOW_OPEN_READ, &err) != 1) {
        libqcow_file_free(&f, nullptr);
        problem = Problem(Kind::Damaged, {}, QcowError(err));
        return false;
    }
    b.chain.push_back(f);
    b.files.push_back(path);
    const size_t me = b.chain.size() - 1;
    uint32_t method = LIBQCOW_ENCRYPTION_METHOD_NONE;
    if (libqcow_file_get_encryption_method(f, &method, nullptr) == 1 && method != LIBQCOW_ENCRYPTION_METHOD_NONE) {
        problem = Problem(Kind::Encrypted, {});
        return false;
    }
    std::string parent =
        LibString(f, libqcow_file_get_utf8_backing_filename_size, libqcow_file_get_utf8_backing_filename);
    if (parent.empty()) return true;
    std::string found = ResolveRelated(path, parent);
    if (found.empty() || depth >= kMaxParentDepth) {
        problem = Problem(Kind::MissingParent, parent);
        return false;
    }
    platform::File pf;
    if (!pf.OpenRead(found, false)) {
        problem = Problem(Kind::MissingParent, parent);
        return false;
    }
    FileSource probe(std::move(pf));
    if (DetectContainer(probe) != ContainerFormat::Qcow) {
        problem = Problem(Kind::Damaged, parent, "the backing file is not a QCOW image");
        return false;
    }
    if (!OpenQcowChain(b, found, depth + 1, problem)) return false;
    if (libqcow_file_set_parent_file(f, b.chain[me + 1], &err) != 1) {
        problem = Problem(Kind::Damaged, parent, QcowError(err));
        return false;
    }
    return true;
}

std::unique_ptr<ByteSource> OpenPlain(const std::string& path) {
    platform::File f;
    if (path.empty() || !f.OpenRead(path, false)) return nullptr;
    return std::make_unique<FileSource>(std::move(f));
}

// The holes of an image without a parent, from its own tables (see ContainerMap).
std::unique_ptr<ContainerMap> MapOf(const VmdkBackend& b, uint64_t size) {
    if (b.chain.size() != 1) return nullptr;
    using Extent = ContainerMap::VmdkExtent;
    std::vector<Extent> extents;
    for (const VmdkBackend::Extent& e : b.extents) {
        Extent x;
        x.bytes = e.bytes;
        if (e.type == LIBVMDK_EXTENT_TYPE_ZERO) x.kind = Extent::Kind::Zero;
        else if (e.type == LIBVMDK_EXTENT_TYPE_SPARSE && (x.file = OpenPlain(e.path))) x.kind = Extent::Kind::Sparse;
        extents.push_back(std::move(x));
    }
    return ContainerMap::Vmdk(std::move(extents), size);
}

std::unique_ptr<ContainerMap> MapOf(const QcowBackend& b, uint64_t size) {
    if (b.chain.size() != 1) return nullptr;
    return ContainerMap::Qcow(OpenPlain(b.files.front()), size);
}

std::unique_ptr<ContainerMap> MapOf(const VhdiBackend& b, uint64_t size) {
    if (b.chain.size() != 1) return nullptr;
    return ContainerMap::DynamicVhd(OpenPlain(b.files.front()), size);
}

template <typename B, typename OpenFn>
std::unique_ptr<B> OpenChain(const std::string& path, OpenFn open, ContainerProblem& problem) {
    auto b = std::make_unique<B>();
    if (!open(*b, path, 0, problem)) return nullptr;
    return b;
}

} // namespace

std::unique_ptr<ContainerSource> ContainerSource::Open(const std::string& path, ContainerFormat format,
                                                       ContainerProblem& problem) {
    problem = ContainerProblem{};
    auto src = std::unique_ptr<ContainerSource>(new ContainerSource);
    src->m_format = format;
    size64_t size = 0;
    switch (format) {
    case ContainerFormat::Ewf: {
        uint64_t media = 0;
        uint32_t bps = 512;
        src->m_backend = OpenEwf(path, media, bps, problem);
        size = media;
        src->m_sectorSize = bps;
        break;
    }
    case ContainerFormat::Vhd:
    case ContainerFormat::Vhdx:
        if (auto b = OpenChain<VhdiBackend>(path, OpenVhdiChain, problem)) {
            uint32_t bps = 512;
            if (libvhdi_file_get_media_size(b->chain.front(), &size, nullptr) == 1 &&
                libvhdi_file_get_bytes_per_sector(b->chain.front(), &bps, nullptr) == 1)
                src->m_sectorSize = bps;
            if (format == ContainerFormat::Vhd) src->m_map = MapOf(*b, size);
            src->m_backend = std::move(b);
        }
        break;
    case ContainerFormat::Vmdk:
        if (auto b = OpenChain<VmdkBackend>(path, OpenVmdkChain, problem)) {
            libvmdk_handle_get_media_size(b->chain.front(), &size, nullptr);
            src->m_map = MapOf(*b, size);
            src->m_backend = std::move(b);
        }
        break;
    case ContainerFormat::Qcow:
        if (auto b = OpenChain<QcowBackend>(path, OpenQcowChain, problem)) {
            libqcow_file_get_media_size(b->chain.front(), &size, nullptr);
            src->m_map = MapOf(*b, size);
            src->m_backend = std::move(b);
        }
        break;
    case ContainerFormat::None: problem = Problem(Kind::Damaged, {}, "not a container"); break;
    }
    if (!src->m_backend) {
        if (problem.kind == Kind::None) problem.kind = Kind::Damaged;
        return nullptr;
    }
    if (size == 0) {
        problem = Problem(Kind::Damaged, {}, "no disk size recorded");
        return nullptr;
    }
    src->m_size = size;
    if (src->m_sectorSize < 512 || src->m_sectorSize % 512 != 0) src->m_sectorSize = 512;
    return src;
}

ContainerSource::~ContainerSource() = default;

std::unique_ptr<ContainerSource> OpenContainerFile(const std::string& path, ContainerFormat& format,
                                                   ContainerProblem& problem) {
    problem = ContainerProblem{};
    format = ContainerFormat::None;
    platform::File f;
    if (!f.OpenRead(path, false)) return nullptr;
    FileSource file(std::move(f));
    format = DetectContainer(file);
    if (format == ContainerFormat::None) return nullptr;
    return ContainerSource::Open(path, format, problem);
}

void ContainerSource::DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const {
    if (!m_map) return ByteSource::DataRun(offset, start, end);
    std::lock_guard<std::mutex> hold(m_mapLock);
    m_map->DataRun(offset, start, end);
}

const std::vector<std::string>& ContainerSource::Files() const { return m_backend->files; }

long long ContainerSource::ReadAt(void* buf, size_t len, uint64_t offset) {
    if (offset >= m_size) return 0;
    len = size_t(std::min<uint64_t>(len, m_size - offset));
    std::lock_guard<std::mutex> hold(m_lock);
    size_t got = 0;
    auto* out = static_cast<uint8_t*>(buf);
    while (got < len) {
        long long n = m_backend->Read(out + got, len - got, offset + got);
        if (n < 0) {
            m_lastError = platform::SysCodeFromErrno(EIO);
            return got ? (long long)got : -1;
        }
        if (n == 0) {
            // Nothing where the disk still has bytes: a segment or extent ends early.
            m_lastError = platform::SysCodeFromErrno(EIO);
            return got ? (long long)got : -1;
        }
        got += size_t(n);
    }
    return (long long)got;
}

} // namespace kestrin
