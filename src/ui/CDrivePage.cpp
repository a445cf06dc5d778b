#include "ui/CDrivePage.h"

#include <QBrush>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QVBoxLayout>
#include <vector>

#include <unistd.h>

#include "platform/Platform.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"
#include "session/VolumeLabel.h"
#include "ui/CQtMessages.h"
#include "ui/UiText.h"

namespace kestrin::ui {

namespace {

// Size of a block device from /sys (512-byte units), 0 when unknown.
uint64_t SysBlockBytes(const QString& sysPath) {
    QFile f(sysPath + "/size");
    if (!f.open(QIODevice::ReadOnly)) return 0;
    return f.readAll().trimmed().toULongLong() * 512;
}

} // namespace

CDrivePage::CDrivePage(IDesktop& desktop, QWidget* parent) : QWidget(parent), m_desktop(desktop) {
    auto* v = new QVBoxLayout(this);
    m_title = new QLabel;
    QFont f = m_title->font();
    f.setPointSize(f.pointSize() + 4);
    f.setBold(true);
    m_title->setFont(f);
    m_hint = new QLabel;
    m_hint->setWordWrap(true);
    m_drives = new QTreeWidget;
    m_drives->setObjectName("drives");
    m_drives->setColumnCount(kColumns);
    m_drives->setRootIsDecorated(true);
    m_drives->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(m_drives, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem* it) {
        QString path = it->data(kColName, Qt::UserRole).toString();
        if (!path.isEmpty()) emit OpenRequested(path, it->data(kColName, Qt::UserRole + 1).toInt());
    });
    m_addImage = new QPushButton;
    m_addImage->setObjectName("addImage");
    connect(m_addImage, &QPushButton::clicked, this, &CDrivePage::ChooseImageFile);
    m_back = new QPushButton;
    connect(m_back, &QPushButton::clicked, this, &CDrivePage::BackRequested);
    m_next = new QPushButton;
    m_next->setObjectName("driveNext");
    connect(m_next, &QPushButton::clicked, this, [this] {
        QTreeWidgetItem* it = m_drives->currentItem();
        QString path = it ? it->data(kColName, Qt::UserRole).toString() : QString();
        if (path.isEmpty()) {
            m_desktop.Inform(this, Tx("IDS_UI_PICK_DRIVE", "Select a drive, a volume or an image file first."));
            return;
        }
        emit OpenRequested(path, it->data(kColName, Qt::UserRole + 1).toInt());
    });
    m_fileTypes = new QPushButton;
    m_fileTypes->setObjectName("fileTypes");
    connect(m_fileTypes, &QPushButton::clicked, this, &CDrivePage::FileTypesRequested);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_addImage);
    buttons->addWidget(m_fileTypes);
    buttons->addStretch();
    buttons->addWidget(m_back);
    buttons->addWidget(m_next);
    v->addWidget(m_title);
    v->addWidget(m_hint);
    v->addWidget(m_drives, 1);
    v->addLayout(buttons);
}

void CDrivePage::Retranslate(const QString& title) {
    m_title->setText(title);
    UpdateHint();
    m_drives->setHeaderLabels({Tx("IDS_UI_DRIVE", "Drive"), Tx("IDS_UI_KIND", "Kind"), Tx("IDS_UI_SIZE", "Size"),
                               Tx("IDS_UI_FILE_SYSTEM", "File system"), Tx("IDS_UI_LABEL", "Label")});
    m_addImage->setText(Tx("IDS_UI_ADD_IMAGE", "Add Image File..."));
    m_fileTypes->setText(Tx("IDS_UI_CHOOSE_FILE_TYPES", "File Types..."));
    m_back->setText(Tx("IDS_UI_BACK", "< Back"));
    m_next->setText(Tx("IDS_UI_NEXT", "Next >"));
}

void CDrivePage::SetFileTypesEnabled(bool on) { m_fileTypes->setEnabled(on); }

QString CDrivePage::HumanSize(uint64_t bytes) {
    const char* units[] = {"B", "KB", "MB", "GB", "TB"};
    double v = double(bytes);
    int u = 0;
    while (v >= 1024 && u < 4) v /= 1024, ++u;
    return QString::number(v, 'f', u ? 1 : 0) + " " + units[u];
}

void CDrivePage::Fill() {
    // The disks are listed anew, then the image files the user added; the selection stays.
    QTreeWidgetItem* cur = m_drives->currentItem();
    QString curPath = cur ? cur->data(kColName, Qt::UserRole).toString() : QString();
    int curPartition = cur ? cur->data(kColName, Qt::UserRole + 1).toInt() : -1;
    m_drives->clear();
    m_noAccess = false;
    for (const std::string& name : CPhysicalDisk::ListDiskNames()) {
        QString n = QString::fromStdString(name);
        QString sys = "/sys/block/" + n;
        auto* disk = new QTreeWidgetItem(m_drives);
        Describe(disk, "/dev/" + n, Tx("IDS_UI_PHYSICAL_DISK", "Physical disk"), SysBlockBytes(sys), false);
        QDir dir(sys);
        for (const QString& part : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            if (!part.startsWith(n)) continue;
            auto* vol = new QTreeWidgetItem(disk);
            Describe(vol, "/dev/" + part, Tx("IDS_UI_VOLUME", "Volume"), SysBlockBytes(sys + "/" + part), false);
        }
    }
    for (const QString& path : m_imagePaths) {
        auto* it = new QTreeWidgetItem(m_drives);
        Describe(it, path, Tx("IDS_UI_IMAGE_FILE", "Image file"), uint64_t(QFileInfo(path).size()), true);
    }
    m_drives->expandAll();
    for (QTreeWidgetItemIterator it(m_drives); *it; ++it)
        if ((*it)->data(kColName, Qt::UserRole).toString() == curPath &&
            (*it)->data(kColName, Qt::UserRole + 1).toInt() == curPartition)
            m_drives->setCurrentItem(*it);
    UpdateHint();
}

bool CDrivePage::MoreRightsWouldHelp(const QString& path) {
    if (::geteuid() == 0) return false;
    platform::File probe;
    return !probe.OpenRead(path.toStdString()) && probe.LastError() == platform::kErrAccessDenied;
}

void CDrivePage::UpdateHint() {
    QString hint = Tx("IDS_UI_DRIVE_HINT", "Select the drive, volume or disk image file to scan, then click Next.");
    if (m_noAccess)
        hint += "\n" + Tx("IDS_UI_NEED_RIGHTS", "Reading drives needs administrator rights: start Kestrin with sudo, or add "
                                                "your user to the \"disk\" group. Image files can always be opened.");
    m_hint->setText(hint);
}

FsKind CDrivePage::ShownFsKind(OpenedSource& src, size_t index) {
    if (index >= src.partitions.size()) return FsKind::None;
    const PartitionRecord& r = src.partitions[index];
    if (r.partitionFlag != PartitionFlag::TableOnly) return r.fsKind;
    // The table's type byte only guessed: what the boot sector holds is what is shown.
    FsKind kind = r.fsKind;
    if (SelectListedPartition(src, index)) {
        CPhysicalDisk& m = *src.media;
        std::vector<uint8_t> sector(m.GetSectorSize());
        if (!sector.empty() && m.ReadSectors(sector.data(), uint32_t(sector.size()), m.GetFirstSector(), true))
            if (auto v = RecogniseVolume(m, sector, m.GetSectorCount())) kind = v->fsKind;
    }
    SelectWholeSource(src);
    return kind;
}

QString CDrivePage::PartitionLabel(OpenedSource& src, size_t index) {
    FsKind fsKind = ShownFsKind(src, index);
    if (fsKind == FsKind::None) return {};
    QString label;
    if (SelectListedPartition(src, index))
        label = QString::fromStdU16String(ReadVolumeLabel(*src.media, src.media->GetFirstSector(), fsKind));
    SelectWholeSource(src);
    return label.trimmed();
}

void CDrivePage::Describe(QTreeWidgetItem* it, const QString& path, const QString& kind, uint64_t bytes,
                          bool listPartitions) {
    it->setText(kColName, path);
    it->setText(kColKind, kind);
    it->setData(kColName, Qt::UserRole, path);
    it->setData(kColName, Qt::UserRole + 1, -1);
    if (bytes) it->setText(kColSize, HumanSize(bytes));
    // Opened read-only for a look at its layout and file systems, closed again at once.
    OpenedSource src;
    std::string error;
    if (!OpenSource(path.toStdString(), src, error)) {
        // Refused for want of rights: the page says how to get them. Other failures, and every
        // refusal the administrator gets, show the system's reason.
        bool denied = MoreRightsWouldHelp(path);
        m_noAccess = m_noAccess || denied;
        it->setText(kColFs, denied ? Tx("IDS_UI_NO_ACCESS", "no access") : QString::fromStdString(error));
        it->setToolTip(kColName, QString::fromStdString(error));
        it->setForeground(kColFs, QBrush(Qt::darkRed));
        return;
    }
    if (!bytes) it->setText(kColSize, HumanSize(src.media->ByteSize()));
    if (src.layout == Layout::Volume && src.partitions.size() == 1) {
        // A volume on its own: its file system and label belong to this line.
        it->setText(kColFs, QString::fromUtf8(FsKindName(ShownFsKind(src, 0))));
        it->setText(kColLabel, PartitionLabel(src, 0));
        return;
    }
    if (src.layout != Layout::None) it->setText(kColFs, QString::fromUtf8(LayoutName(src.layout)).toUpper());
    if (!listPartitions) return;
    uint32_t sectorSize = src.media->GetSectorSize();
    for (size_t i = 0; i < src.partitions.size(); ++i) {
        const PartitionRecord& r = src.partitions[i];
        auto* part = new QTreeWidgetItem(it);
        part->setText(kColName, Tx("IDS_UI_PARTITION", "Partition") + QString(" %1").arg(i + 1));
        part->setText(kColKind, Tx("IDS_UI_VOLUME", "Volume"));
        part->setText(kColSize, HumanSize(RecordSectorCount(r, src.layout) * sectorSize));
        FsKind fsKind = ShownFsKind(src, i);
        part->setText(kColFs, fsKind != FsKind::None ? QString::fromUtf8(FsKindName(fsKind)) : QString());
        part->setText(kColLabel, PartitionLabel(src, i));
        part->setData(kColName, Qt::UserRole, path);
        part->setData(kColName, Qt::UserRole + 1, int(i));
    }
}

void CDrivePage::ChooseImageFile() {
    QString path = QFileDialog::getOpenFileName(this, m_addImage->text(), QString(),
                                                Tx("IDS_UI_IMAGE_FILTER", "Disk images") +
                                                    " (*.img *.dd *.raw *.bin *.001 *.iso);;* (*)");
    if (!path.isEmpty()) AddImage(path);
}

void CDrivePage::AddImage(const QString& path) {
    if (!m_imagePaths.contains(path)) m_imagePaths << path;
    auto* it = new QTreeWidgetItem(m_drives);
    Describe(it, path, Tx("IDS_UI_IMAGE_FILE", "Image file"), uint64_t(QFileInfo(path).size()), true);
    it->setExpanded(true);
    m_drives->setCurrentItem(it);
}

} // namespace kestrin::ui
