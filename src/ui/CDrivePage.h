#pragma once
// The drive-selection page: the disks of this machine with their volumes, and the image files
// the user added with their partitions, each with size, file system and label as a read-only
// look at the source shows them. A device that cannot be read for want of rights is marked and
// the page says how to get them; when more rights would not help, the system's reason is shown.
#include <QStringList>
#include <QWidget>
#include <cstdint>

#include "session/Source.h"
#include "ui/Desktop.h"

class QLabel;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace kestrin::ui {

class CDrivePage final : public QWidget {
    Q_OBJECT
public:
    enum Column { kColName, kColKind, kColSize, kColFs, kColLabel, kColumns };

    explicit CDrivePage(IDesktop& desktop, QWidget* parent = nullptr);

    // Lists the disks anew, then the added image files; the selected line stays selected.
    void Fill();
    // Adds an image file with its partitions below it and selects it.
    void AddImage(const QString& path);
    void Retranslate(const QString& title);
    void SetFileTypesEnabled(bool on);

    // The file system of listed partition `index` as its boot sector shows it, where the table
    // alone named one; and the label read from that volume. The source is left whole.
    static FsKind ShownFsKind(OpenedSource& src, size_t index);
    static QString PartitionLabel(OpenedSource& src, size_t index);
    // "12.3 MB".
    static QString HumanSize(uint64_t bytes);
    // True when `path` cannot be read for want of rights that sudo or the "disk" group would
    // give; never when the program already runs as the administrator, who has them all.
    static bool MoreRightsWouldHelp(const QString& path);

signals:
    // A source was chosen (double-click or Next): `partition` >= 0 names an entry of its
    // partition list, -1 the whole source.
    void OpenRequested(const QString& path, int partition);
    void BackRequested();
    void FileTypesRequested();

private:
    void Describe(QTreeWidgetItem* it, const QString& path, const QString& kind, uint64_t bytes, bool listPartitions);
    void ChooseImageFile();
    void UpdateHint();

    IDesktop& m_desktop;
    QLabel* m_title = nullptr;
    QLabel* m_hint = nullptr;
    QTreeWidget* m_drives = nullptr;
    QPushButton* m_addImage = nullptr;
    QPushButton* m_fileTypes = nullptr;
    QPushButton* m_back = nullptr;
    QPushButton* m_next = nullptr;
    QStringList m_imagePaths;
    bool m_noAccess = false; // a device could not be opened for want of rights
};

} // namespace kestrin::ui
