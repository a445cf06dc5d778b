#pragma once
// Copying a disk, volume or partition into an image file: the source as the drive page chose
// it, the image file to write (never on the source; an existing file only with consent), the
// copy behind the progress window, and its result: bytes copied, unreadable sectors and the map
// of where they lie.
#include <QDialog>
#include <QString>

#include "output/DiskImage.h"
#include "ui/Desktop.h"

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace kestrin::ui {

class CImageDialog final : public QDialog {
    Q_OBJECT
public:
    // `partition` >= 0: that entry of the source's partition list; -1 the whole source.
    CImageDialog(IDesktop& desktop, const QString& sourcePath, int partition, QWidget* parent = nullptr);

    void SetTarget(const QString& imagePath);
    // Checks the target and copies. False when nothing was copied (refused, declined, failed to
    // open) or the copy was cancelled or could not be written; unreadable sectors still count
    // as a copy made.
    bool Create();
    const ImageResult& Result() const { return m_result; }
    // What the result line says, for the record.
    QString ResultText() const;

private:
    void ChooseTarget();
    void ShowResult(const QString& imagePath, uint32_t sectorSize);

    IDesktop& m_desktop;
    QString m_sourcePath;
    int m_partition;
    ImageResult m_result;
    QLineEdit* m_target = nullptr;
    QPushButton* m_browse = nullptr;
    QPushButton* m_start = nullptr;
    QLabel* m_resultLine = nullptr;
    QPlainTextEdit* m_badSectors = nullptr;
};

} // namespace kestrin::ui
