#pragma once
// The media-type filter of the photo modes: which found files count as a photo, a camera raw
// picture, a video or a piece of music, decided by the extension of the file's name. Every such
// type the signature table can carve is listed, plus the usual other spellings of the same
// formats that file systems hold (".jpeg", ".tiff", ".aif", ...).
#include <cstdint>
#include <string_view>

namespace kestrin {

class CNode;

enum class MediaClass : uint8_t { None, Photo, CameraRaw, Video, Audio };

// Class of a file name by its extension (ASCII case-insensitive); None for anything else.
MediaClass MediaClassOfName(std::u16string_view name);
inline bool IsMediaFileName(std::u16string_view name) { return MediaClassOfName(name) != MediaClass::None; }

// The two pruning passes of the photo modes over the tree below `top`: first every file the
// filter rejects is unlinked and destroyed, then every folder left without children, deepest
// first. `top` itself stays. Returns the number of nodes destroyed.
uint64_t PruneToMediaFiles(CNode* top);

} // namespace kestrin
