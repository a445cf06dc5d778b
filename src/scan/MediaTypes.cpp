#include "scan/MediaTypes.h"

#include <array>
#include <string>
#include <vector>

#include "fs/CNode.h"

namespace kestrin {

namespace {

struct MediaExtension {
    const char* ext; // lower case, without the dot
    MediaClass cls;
};

// Photo: the picture formats the carver knows (JPEG, PNG, GIF, BMP, TIFF, Photoshop).
// Camera raw: every maker format of the carver (Canon CR2/CRW, Adobe DNG, Hasselblad 3FR, Kodak
// K25/DCR/KDC, Nikon NEF/NRW, Pentax PEF, Sony ARW/SR2/SRF, Epson ERF, Samsung SRW, Minolta MRW,
// Olympus ORF, Fuji RAF, Sigma X3F, Leica and Panasonic RAW/RWL/RW2).
// Video: AVI (with DivX and XviD), QuickTime, MPEG, MP4 and its 3GP/M4V relatives, MPEG transport
// streams, RealMedia, Flash.
// Audio: MP3, WAV, AIFF, MIDI, M4A/M4B, RealAudio, AMR.
constexpr std::array kMediaExtensions{
    MediaExtension{"jpg", MediaClass::Photo},   MediaExtension{"jpeg", MediaClass::Photo},
    MediaExtension{"jpe", MediaClass::Photo},   MediaExtension{"jfif", MediaClass::Photo},
    MediaExtension{"png", MediaClass::Photo},   MediaExtension{"gif", MediaClass::Photo},
    MediaExtension{"bmp", MediaClass::Photo},   MediaExtension{"dib", MediaClass::Photo},
    MediaExtension{"tif", MediaClass::Photo},   MediaExtension{"tiff", MediaClass::Photo},
    MediaExtension{"psd", MediaClass::Photo},

    MediaExtension{"cr2", MediaClass::CameraRaw}, MediaExtension{"crw", MediaClass::CameraRaw},
    MediaExtension{"dng", MediaClass::CameraRaw}, MediaExtension{"3fr", MediaClass::CameraRaw},
    MediaExtension{"k25", MediaClass::CameraRaw}, MediaExtension{"dcr", MediaClass::CameraRaw},
    MediaExtension{"kdc", MediaClass::CameraRaw}, MediaExtension{"nef", MediaClass::CameraRaw},
    MediaExtension{"nrw", MediaClass::CameraRaw}, MediaExtension{"pef", MediaClass::CameraRaw},
    MediaExtension{"arw", MediaClass::CameraRaw}, MediaExtension{"sr2", MediaClass::CameraRaw},
    MediaExtension{"srf", MediaClass::CameraRaw}, MediaExtension{"erf", MediaClass::CameraRaw},
    MediaExtension{"srw", MediaClass::CameraRaw}, MediaExtension{"mrw", MediaClass::CameraRaw},
    MediaExtension{"orf", MediaClass::CameraRaw}, MediaExtension{"raf", MediaClass::CameraRaw},
    MediaExtension{"x3f", MediaClass::CameraRaw}, MediaExtension{"raw", MediaClass::CameraRaw},
    MediaExtension{"rwl", MediaClass::CameraRaw}, MediaExtension{"rw2", MediaClass::CameraRaw},

    MediaExtension{"avi", MediaClass::Video},   MediaExtension{"divx", MediaClass::Video},
    MediaExtension{"xvid", MediaClass::Video},  MediaExtension{"mov", MediaClass::Video},
    MediaExtension{"qt", MediaClass::Video},    MediaExtension{"mpg", MediaClass::Video},
    MediaExtension{"mpeg", MediaClass::Video},  MediaExtension{"mpe", MediaClass::Video},
    MediaExtension{"m1v", MediaClass::Video},   MediaExtension{"m2v", MediaClass::Video},
    MediaExtension{"vob", MediaClass::Video},   MediaExtension{"mp4", MediaClass::Video},
    MediaExtension{"m4v", MediaClass::Video},   MediaExtension{"3gp", MediaClass::Video},
    MediaExtension{"3g2", MediaClass::Video},   MediaExtension{"mts", MediaClass::Video},
    MediaExtension{"m2ts", MediaClass::Video},  MediaExtension{"ts", MediaClass::Video},
    MediaExtension{"rm", MediaClass::Video},    MediaExtension{"rmvb", MediaClass::Video},
    MediaExtension{"swf", MediaClass::Video},   MediaExtension{"asf", MediaClass::Video},
    MediaExtension{"wmv", MediaClass::Video},

    MediaExtension{"mp3", MediaClass::Audio},   MediaExtension{"wav", MediaClass::Audio},
    MediaExtension{"aif", MediaClass::Audio},   MediaExtension{"aiff", MediaClass::Audio},
    MediaExtension{"aifc", MediaClass::Audio},  MediaExtension{"mid", MediaClass::Audio},
    MediaExtension{"midi", MediaClass::Audio},  MediaExtension{"m4a", MediaClass::Audio},
    MediaExtension{"m4b", MediaClass::Audio},   MediaExtension{"ra", MediaClass::Audio},
    MediaExtension{"ram", MediaClass::Audio},   MediaExtension{"amr", MediaClass::Audio},
    MediaExtension{"wma", MediaClass::Audio},
};

} // namespace

MediaClass MediaClassOfName(std::u16string_view name) {
    size_t dot = name.rfind(u'.');
    if (dot == std::u16string_view::npos || name.size() - dot - 1 > 8) return MediaClass::None;
    char ext[9] = {};
    size_t n = 0;
    for (size_t i = dot + 1; i < name.size(); ++i) {
        char16_t c = name[i];
        if (c >= u'A' && c <= u'Z') c = char16_t(c + 32);
        if (c > 0x7F) return MediaClass::None;
        ext[n++] = char(c);
    }
    std::string_view e(ext, n);
    for (const auto& m : kMediaExtensions)
        if (e == m.ext) return m.cls;
    return MediaClass::None;
}

namespace {

// Unlinks and destroys the children of `folder` that `drop` selects, in one sweep of its list.
template <class Drop>
uint64_t SweepChildren(CNode* folder, Drop drop) {
    uint64_t removed = 0;
    for (CNode** link = &folder->firstChild; *link;) {
        CNode* c = *link;
        if (drop(c)) {
            *link = c->nextSibling;
            c->nextSibling = nullptr;
            c->parent = nullptr;
            delete c;
            ++removed;
        } else {
            link = &c->nextSibling;
        }
    }
    return removed;
}

} // namespace

uint64_t PruneToMediaFiles(CNode* top) {
    if (!top) return 0;
    // Every folder, parents before children (breadth first, no recursion: depth comes from disk
    // data).
    std::vector<CNode*> folders{top};
    for (size_t i = 0; i < folders.size(); ++i)
        for (CNode* c = folders[i]->firstChild; c; c = c->nextSibling)
            if (c->IsFolder() || c->firstChild) folders.push_back(c);
    uint64_t removed = 0;
    // Pass 1: files the media-type filter rejects, folder by folder. A "file" that holds children
    // (malformed input) is kept here so the list above stays valid; pass 2 judges it.
    for (CNode* f : folders)
        removed += SweepChildren(f, [](const CNode* n) {
            return !n->IsFolder() && !n->firstChild && !IsMediaFileName(n->name);
        });
    // Pass 2: folders left empty, deepest first, so a folder that held only empty folders goes too.
    for (size_t i = folders.size(); i-- > 0;)
        removed += SweepChildren(folders[i], [](const CNode* n) {
            return !n->firstChild && (n->IsFolder() || !IsMediaFileName(n->name));
        });
    return removed;
}

} // namespace kestrin
