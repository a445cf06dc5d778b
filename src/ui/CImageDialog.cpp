#include "ui/CImageDialog.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "scan/CScanDriver.h"
#include "session/EngineTable.h"
#include "session/ImagePlan.h"
#include "session/Texts.h"
#include "ui/CDrivePage.h"
#include "ui/CQtMessages.h"
#include "ui/CScanMan.h"
#include "ui/PreviewContent.h"
#include "ui/UiText.h"
#include "util/Text.h"

namespace kestrin::ui {

namespace {
// The map lists runs of sectors; a dying disk may have very many: the dialog shows the start.
constexpr qint64 kMapShownBytes = 64 << 10;
} // namespace

CImageDialog::CImageDialog(IDesktop& desktop, const QString& sourcePath, int partition, QWidget* parent)
    : QDialog(parent), m_desktop(desktop), m_sourcePath(sourcePath), m_partition(partition) {
    setObjectName("CImageDialog");
    setWindowTitle(Tx("IDS_UI_CREATE_IMAGE_TITLE", "Create Image File"));
    auto* v = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    QString source = sourcePath;
    if (partition >= 0) source += " - " + Tx("IDS_UI_PARTITION", "Partition") + QString(" %1").arg(partition + 1);
    auto* sourceLabel = new QLabel(source);
    sourceLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow(Tx("IDS_UI_IMAGE_SOURCE", "Source:"), sourceLabel);
    m_target = new QLineEdit;
    m_target->setObjectName("imageTarget");
    m_target->setMinimumWidth(m_target->fontMetrics().averageCharWidth() * 48);
    m_browse = new QPushButton(Tx("IDS_UI_BROWSE", "Browse..."));
    connect(m_browse, &QPushButton::clicked, this, &CImageDialog::ChooseTarget);
    auto* targetRow = new QHBoxLayout;
    targetRow->addWidget(m_target, 1);
    targetRow->addWidget(m_browse);
    form->addRow(Tx("IDS_UI_IMAGE_TARGET", "Image file to write:"), targetRow);
    v->addLayout(form);
    m_resultLine = new QLabel;
    m_resultLine->setObjectName("imageResult");
    m_resultLine->setWordWrap(true);
    m_resultLine->setTextInteractionFlags(Qt::TextSelectableByMouse);
    v->addWidget(m_resultLine);
    m_badSectors = new QPlainTextEdit;
    m_badSectors->setObjectName("badSectors");
    m_badSectors->setReadOnly(true);
    m_badSectors->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_badSectors->setFont(FixedWidthFont());
    m_badSectors->setVisible(false);
    v->addWidget(m_badSectors, 1);
    auto* buttons = new QDialogButtonBox;
    m_start = buttons->addButton(Tx("IDS_UI_START_IMAGE", "Create"), QDialogButtonBox::ActionRole);
    m_start->setObjectName("imageStart");
    m_start->setDefault(true);
    QPushButton* close = buttons->addButton(Tx("IDS_UI_CLOSE", "Close"), QDialogButtonBox::RejectRole);
    close->setObjectName("imageClose");
    connect(m_start, &QPushButton::clicked, this, &CImageDialog::Create);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    v->addWidget(buttons);
}

void CImageDialog::SetTarget(const QString& imagePath) { m_target->setText(imagePath); }

void CImageDialog::ChooseTarget() {
    // Asked about once, by the checks, when it exists.
    QString path = QFileDialog::getSaveFileName(this, windowTitle(), m_target->text(),
                                                Tx("IDS_UI_IMAGE_FILTER", "Disk images") + " (*.img *.dd *.raw *.bin);;* (*)",
                                                nullptr, QFileDialog::DontConfirmOverwrite);
    if (!path.isEmpty()) m_target->setText(path);
}

bool CImageDialog::Create() {
    QString target = m_target->text().trimmed();
    if (target.isEmpty()) {
        m_desktop.Inform(this, Tx("IDS_UI_PICK_IMAGE_TARGET", "Choose the image file to write first."));
        return false;
    }
    OpenedSource src;
    std::string error;
    if (!OpenSource(m_sourcePath.toStdString(), src, error)) {
        m_desktop.Fail(this, Tx("IDS_UI_CANNOT_OPEN", "The source could not be opened:") + "\n" + QString::fromStdString(error));
        return false;
    }
    // Never onto the source; an image or map of that name is replaced only after the user agreed.
    bool replace = false;
    OutputCheck check = CheckImageTarget(src, m_sourcePath.toStdString(), target.toStdString(), false);
    if (check.problem == OutputProblem::kExists) {
        QString question = QString::fromStdString(check.path) + "\n\n" +
                           Tx("IDS_UI_REPLACE_FILE", "A file of this name exists. Replace it? What it holds now will be lost.");
        if (!m_desktop.Ask(this, question, false)) return false;
        replace = true;
        check = CheckImageTarget(src, m_sourcePath.toStdString(), target.toStdString(), true);
    }
    if (!check.ok()) {
        m_desktop.Fail(this, QString::fromStdString(TextOf(DescribeOutputProblem(check))));
        return false;
    }
    if (!SelectImageRange(src, m_partition)) {
        m_desktop.Fail(this, Tx("IDS_UI_PARTITION_OUTSIDE", "This partition lies outside the source."));
        return false;
    }
    CQtMessages messages(this, m_desktop);
    m_result = ImageResult{};
    Engines engines = MakeEngines();
    engines.createImage = [&](CPhysicalDisk& m, ScanContext& ctx) {
        m_result = CreateDiskImage(m, target.toStdString(), ctx, messages, replace);
        return OutcomeOf(m_result);
    };
    CScanMan progress(m_desktop, this);
    CScanDriver driver(*src.media, engines, progress);
    if (!driver.Start(OperationKind::CreateImage, RecoveryMode::DeletedFiles)) {
        m_desktop.Fail(this, Tx("IDS_UI_IMAGE_NOT_WRITTEN", "No image was written."));
        return false;
    }
    progress.Run(driver);
    if (driver.CancelConfirmed()) m_result.cancelled = true;
    ShowResult(target, src.media->GetSectorSize());
    return !m_result.cancelled && !m_result.refused && !m_result.error;
}

QString CImageDialog::ResultText() const { return m_resultLine->text(); }

void CImageDialog::ShowResult(const QString& imagePath, uint32_t sectorSize) {
    m_badSectors->clear();
    m_badSectors->setVisible(false);
    if (m_result.cancelled) {
        m_resultLine->setText(Tx("IDS_CLI_IMAGE_CANCELLED", "The copy was cancelled; no image was written."));
        return;
    }
    if (m_result.refused || m_result.error) {
        // The reason was shown as the copy ended.
        m_resultLine->setText(Tx("IDS_UI_IMAGE_NOT_WRITTEN", "No image was written."));
        return;
    }
    uint64_t bytes = m_result.sectors * sectorSize;
    QString text = Tx("IDS_CLI_IMAGE_WRITTEN", "Image written to") + " " + imagePath + "\n" +
                   Tx("IDS_UI_BYTES_COPIED", "Bytes copied:") + " " + QString::fromStdString(WithThousands(bytes)) +
                   " (" + CDrivePage::HumanSize(bytes) + ")\n" + Tx("IDS_CLI_IMAGE_BAD_SECTORS", "Unreadable sectors written as zeros") +
                   ": " + QString::fromStdString(WithThousands(m_result.badSectors));
    if (!m_result.mapPath.empty()) text += " (" + QString::fromStdString(m_result.mapPath) + ")";
    m_resultLine->setText(text);
    if (m_result.badSectors && !m_result.mapPath.empty()) {
        QFile map(QString::fromStdString(m_result.mapPath));
        if (map.open(QIODevice::ReadOnly)) {
            m_badSectors->setPlainText(QString::fromUtf8(map.read(kMapShownBytes)));
            m_badSectors->setVisible(true);
        }
    }
}

} // namespace kestrin::ui
