#pragma once
// The drive-selection page: the disks of this machine with their volumes, and the image files
// the user added with their partitions, each with size, file system and label as a read-only
// look at the source shows them. A source that cannot be opened is marked; the system's reason is
// its tooltip and shows in the status line below the list while it is selected, and the page
// says how to get more rights only when a device refused for want of them. Added image files can
// be taken off the list again (context menu, Delete).
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
    // Takes an added image file off the list; false when it was not listed.
    bool RemoveImage(const QString& path);
    const QStringList& ImagePaths() const { return m_imagePaths; }
    // The selected line's source and partition (-1: the whole source); empty path when none.
    QString SelectedPath(int* partition = nullptr) const;
    // The line of `path` (and `partition`), or null.
    QTreeWidgetItem* ItemOf(const QString& path, int partition = -1) const;

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
    // Copy the selected source (or partition) into an image file.
    void ImageRequested(const QString& path, int partition);

private:
    void Describe(QTreeWidgetItem* it, const QString& path, const QString& kind, uint64_t bytes, bool listPartitions);
    void ChooseImageFile();
    void UpdateHint();
    void UpdateStatus();
    void ShowContextMenu(const QPoint& at);
    bool eventFilter(QObject* watched, QEvent* event) override;

    IDesktop& m_desktop;
    QLabel* m_title = nullptr;
    QLabel* m_hint = nullptr;
    QLabel* m_status = nullptr;
    QTreeWidget* m_drives = nullptr;
    QPushButton* m_addImage = nullptr;
    QPushButton* m_fileTypes = nullptr;
    QPushButton* m_createImage = nullptr;
    QPushButton* m_back = nullptr;
    QPushButton* m_next = nullptr;
    QStringList m_imagePaths;
    bool m_noAccess = false; // a device could not be opened for want of rights
};

} // namespace kestrin::ui
