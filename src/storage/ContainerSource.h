#pragma once
// Virtual-machine disks and forensic evidence files read as the disk they hold: EWF (.E01, with
// its further segments), VHD and VHDX, VMDK (a descriptor and its extents, or one sparse file)
// and QCOW2. The format is told by the file's own bytes, never by its name. Opened read-only;
// a differencing or backing-file image opens its parents from the image's own folder.
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "storage/ByteSource.h"

namespace kestrin {

class ContainerMap;

enum class ContainerFormat : uint8_t { None, Ewf, Vhd, Vhdx, Vmdk, Qcow };

// "E01", "VHD", "VHDX", "VMDK", "QCOW2"; "" for None.
const char* ContainerFormatName(ContainerFormat format);

// What the file's first bytes (and, for a fixed VHD, its last 512) say it is; None for anything
// else, a raw image among them.
ContainerFormat DetectContainer(ByteSource& file);

// Why a container could not be opened.
struct ContainerProblem {
    enum class Kind : uint8_t {
        None,
        Damaged,       // the library refused the file: `detail` says why
        MissingParent, // the parent (differencing disk, backing file) named `name` is not there
        MissingPart,   // an extent or segment named `name` is not there
        Encrypted,     // its data is encrypted
    };
    Kind kind = Kind::None;
    std::string name;   // as the image names it
    std::string detail; // the library's own last words, one line
};

class ContainerSource;

// Opens the image file `path` when it is a container: `format` is what its bytes say (None for
// a raw image or a file that cannot be read, and then the result is null with no problem);
// null with `problem` filled when the container cannot be opened.
std::unique_ptr<ContainerSource> OpenContainerFile(const std::string& path, ContainerFormat& format,
                                                   ContainerProblem& problem);

class ContainerSource final : public ByteSource {
public:
    // Opens `path` as `format` (from DetectContainer). Null with `problem` filled on failure.
    static std::unique_ptr<ContainerSource> Open(const std::string& path, ContainerFormat format,
                                                 ContainerProblem& problem);
    ~ContainerSource() override;

    // Reads are serialised: the libraries' handles keep a position and caches of their own.
    long long ReadAt(void* buf, size_t len, uint64_t offset) override;
    uint64_t Size() const override { return m_size; }
    uint32_t LastError() const override { return m_lastError; }
    // What the image's allocation tables leave unallocated holds no data (QCOW2, sparse VMDK
    // extents and dynamic VHD without a parent); everything else counts as data.
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const override;
    // Whether DataRun answers from the image's tables.
    bool HasMap() const { return m_map != nullptr; }

    ContainerFormat Format() const { return m_format; }
    // The disk's sector size as the container records it (EWF bytes per sector, VHDX logical
    // sector size); 512 for formats that keep none.
    uint32_t SectorSize() const { return m_sectorSize; }
    // Every file this source reads: the one opened, further segments or extents, parents.
    const std::vector<std::string>& Files() const;

    struct Backend;

private:
    ContainerSource() = default;
    std::unique_ptr<Backend> m_backend;
    std::mutex m_lock;
    std::unique_ptr<ContainerMap> m_map; // null: all data
    mutable std::mutex m_mapLock;        // the map keeps one table cached
    ContainerFormat m_format = ContainerFormat::None;
    uint64_t m_size = 0;
    uint32_t m_sectorSize = 512;
    uint32_t m_lastError = 0;
};

} // namespace kestrin
