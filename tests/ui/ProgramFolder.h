#pragma once
// A program folder of a test's own (language files, and on request a writable settings.ini and
// the built signature file), so a language switch or a saved setting never touches the build's.
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include "fs/CNode.h"

namespace kestrin::test {

struct ProgramFiles {
    bool settings = false;   // data/settings.ini, writable
    bool signatures = false; // the built slt.dat
};

// False when a file could not be copied.
inline bool MakeProgramFolder(const QTemporaryDir& dir, ProgramFiles files = {}) {
    if (!dir.isValid() || !QDir().mkpath(dir.filePath("Lang"))) return false;
    QDir lang(QString(KESTRIN_SOURCE_DIR) + "/data/Lang");
    for (const QString& f : lang.entryList({"*.ini"}, QDir::Files))
        if (!QFile::copy(lang.filePath(f), dir.filePath("Lang/" + f))) return false;
    if (files.settings) {
        if (!QFile::copy(QString(KESTRIN_SOURCE_DIR) + "/data/settings.ini", dir.filePath("settings.ini"))) return false;
        QFile::setPermissions(dir.filePath("settings.ini"), QFile::ReadOwner | QFile::WriteOwner);
    }
    return !files.signatures || QFile::copy(QString(KESTRIN_BINARY_DIR) + "/slt.dat", dir.filePath("slt.dat"));
}

// The found item at `path` ("Folder/name") below the tree's first volume root.
inline CNode* FindPath(CNode* top, const QString& path) {
    CNode* n = top ? FindChild(top, u".") : nullptr;
    for (const QString& part : path.split('/')) {
        if (!n) return nullptr;
        n = FindChild(n, part.toStdU16String());
    }
    return n;
}

} // namespace kestrin::test
