#pragma once
// How one found item looks in the tree and the list: its name, icon with the deleted overlay,
// size and dates.
#include <QIcon>
#include <QString>

#include "fs/CNode.h"

namespace kestrin::ui {

// The shown name: the top is "Root", the signature scan's "File Types" folder is translated.
QString NodeName(const CNode* n);
// The folder under the top where the signature scan groups what it found by type.
bool IsFileTypesFolder(const CNode* n);
// Folder or file icon; items without the in-use flag (deleted or carved) get the red cross.
QIcon NodeIcon(const CNode* n);
// "12 KB"; folders "0 KB".
QString NodeSize(const CNode* n);
QString NodeDate(uint16_t dosDate);

} // namespace kestrin::ui
