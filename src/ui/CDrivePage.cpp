#include "ui/CDrivePage.h"

#include <QBrush>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QStyle>
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

// What each line keeps besides its texts.
constexpr int kRolePath = Qt::UserRole;          // the source to open
constexpr int kRolePartition = Qt::UserRole + 1; // entry of its partition list, -1 the whole
constexpr int kRoleError = Qt::UserRole + 2;     // why it could not be opened
constexpr int kRoleAdded = Qt::UserRole + 3;     // an image file the user added

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
    m_drives->setUniformRowHeights(true);
    // The name takes what is left; the other columns are as wide as their longest text, their
    // headers included, in every language.
    m_drives->header()->setStretchLastSection(false);
    m_drives->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_drives->header()->setSectionResizeMode(kColName, QHeaderView::Stretch);
    m_drives->setContextMenuPolicy(Qt::CustomContextMenu);
    m_drives->installEventFilter(this);
    connect(m_drives, &QWidget::customContextMenuRequested, this, &CDrivePage::ShowContextMenu);
    connect(m_drives, &QTreeWidget::currentItemChanged, this, &CDrivePage::UpdateStatus);
    connect(m_drives, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem* it) {
        QString path = it->data(kColName, kRolePath).toString();
        if (!path.isEmpty()) emit OpenRequested(path, it->data(kColName, kRolePartition).toInt());
    });
    // One line, always there: choosing a line with or without a reason does not move the list.
    m_status = new QLabel;
    m_status->setObjectName("driveStatus");
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_status->setMinimumHeight(m_status->fontMetrics().height());
    m_status->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    m_addImage = new QPushButton;
    m_addImage->setObjectName("addImage");
    connect(m_addImage, &QPushButton::clicked, this, &CDrivePage::ChooseImageFile);
    m_createImage = new QPushButton;
    m_createImage->setObjectName("createImage");
    connect(m_createImage, &QPushButton::clicked, this, [this] {
        int partition = -1;
        QString path = SelectedPath(&partition);
        if (path.isEmpty()) {
            m_desktop.Inform(this, Tx("IDS_UI_PICK_DRIVE", "Select a drive, a volume or an image file first."));
            return;
        }
        emit ImageRequested(path, partition);
    });
    m_back = new QPushButton;
    connect(m_back, &QPushButton::clicked, this, &CDrivePage::BackRequested);
    m_next = new QPushButton;
    m_next->setObjectName("driveNext");
    connect(m_next, &QPushButton::clicked, this, [this] {
        int partition = -1;
        QString path = SelectedPath(&partition);
        if (path.isEmpty()) {
            m_desktop.Inform(this, Tx("IDS_UI_PICK_DRIVE", "Select a drive, a volume or an image file first."));
            return;
        }
        emit OpenRequested(path, partition);
    });
    m_fileTypes = new QPushButton;
    m_fileTypes->setObjectName("fileTypes");
    connect(m_fileTypes, &QPushButton::clicked, this, &CDrivePage::FileTypesRequested);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_addImage);
    buttons->addWidget(m_fileTypes);
    buttons->addWidget(m_createImage);
    buttons->addStretch();
    buttons->addWidget(m_back);
    buttons->addWidget(m_next);
    v->addWidget(m_title);
    v->addWidget(m_hint);
    v->addWidget(m_drives, 1);
    v->addWidget(m_status);
    v->addLayout(buttons);
}

QString CDrivePage::SelectedPath(int* partition) const {
    QTreeWidgetItem* it = m_drives->currentItem();
    if (partition) *partition = it ? it->data(kColName, kRolePartition).toInt() : -1;
    return it ? it->data(kColName, kRolePath).toString() : QString();
}

QTreeWidgetItem* CDrivePage::ItemOf(const QString& path, int partition) const {
    for (QTreeWidgetItemIterator it(m_drives); *it; ++it)
        if ((*it)->data(kColName, kRolePath).toString() == path && (*it)->data(kColName, kRolePartition).toInt() == partition)
            return *it;
    return nullptr;
}

bool CDrivePage::RemoveImage(const QString& path) {
    if (!m_imagePaths.removeOne(path)) return false;
    for (int i = 0; i < m_drives->topLevelItemCount(); ++i) {
        QTreeWidgetItem* it = m_drives->topLevelItem(i);
        if (it->data(kColName, kRoleAdded).toBool() && it->data(kColName, kRolePath).toString() == path) {
            delete m_drives->takeTopLevelItem(i);
            break;
        }
    }
    UpdateStatus();
    return true;
}

void CDrivePage::ShowContextMenu(const QPoint& at) {
    QTreeWidgetItem* it = m_drives->itemAt(at);
    if (!it) return;
    m_drives->setCurrentItem(it);
    QTreeWidgetItem* top = it;
    while (top->parent()) top = top->parent();
    QMenu menu(this);
    QAction* open = menu.addAction(Tx("IDS_UI_SCAN", "Scan"));
    QAction* image = menu.addAction(m_createImage->text());
    QAction* remove = nullptr;
    if (top->data(kColName, kRoleAdded).toBool()) {
        menu.addSeparator();
        remove = menu.addAction(Tx("IDS_UI_REMOVE_IMAGE", "Remove from the list"));
    }
    bool openable = it->data(kColName, kRoleError).toString().isEmpty();
    open->setEnabled(openable);
    image->setEnabled(openable);
    QAction* chosen = menu.exec(m_drives->viewport()->mapToGlobal(at));
    QString path = it->data(kColName, kRolePath).toString();
    int partition = it->data(kColName, kRolePartition).toInt();
    if (chosen == open) emit OpenRequested(path, partition);
    else if (chosen == image) emit ImageRequested(path, partition);
    else if (chosen && chosen == remove) RemoveImage(top->data(kColName, kRolePath).toString());
}

bool CDrivePage::eventFilter(QObject* watched, QEvent* event) {
    // Delete takes the selected image file (or the image a selected partition belongs to) off.
    if (watched == m_drives && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Delete) {
        if (QTreeWidgetItem* it = m_drives->currentItem()) {
            while (it->parent()) it = it->parent();
            if (it->data(kColName, kRoleAdded).toBool()) {
                RemoveImage(it->data(kColName, kRolePath).toString());
                return true;
            }
        }
    }
    return QWidget::eventFilter(watched, event);
}

void CDrivePage::UpdateStatus() {
    QTreeWidgetItem* it = m_drives->currentItem();
    QString error = it ? it->data(kColName, kRoleError).toString() : QString();
    m_status->setText(error.isEmpty() ? QString() : it->data(kColName, kRolePath).toString() + ": " + error);
    m_status->setToolTip(m_status->text());
}

void CDrivePage::Retranslate(const QString& title) {
    m_title->setText(title);
    UpdateHint();
    m_drives->setHeaderLabels({Tx("IDS_UI_DRIVE", "Drive"), Tx("IDS_UI_KIND", "Kind"), Tx("IDS_UI_SIZE", "Size"),
                               Tx("IDS_UI_FILE_SYSTEM", "File system"), Tx("IDS_UI_LABEL", "Label")});
    m_addImage->setText(Tx("IDS_UI_ADD_IMAGE", "Add Image File..."));
    m_createImage->setText(Tx("IDS_UI_CREATE_IMAGE", "Create Image File..."));
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
    int curPartition = -1;
    QString curPath = SelectedPath(&curPartition);
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
        it->setData(kColName, kRoleAdded, true);
        Describe(it, path, Tx("IDS_UI_IMAGE_FILE", "Image file"), uint64_t(QFileInfo(path).size()), true);
    }
    m_drives->expandAll();
    if (QTreeWidgetItem* it = curPath.isEmpty() ? nullptr : ItemOf(curPath, curPartition)) m_drives->setCurrentItem(it);
    UpdateHint();
    UpdateStatus();
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
    it->setData(kColName, kRolePath, path);
    it->setData(kColName, kRolePartition, -1);
    if (bytes) it->setText(kColSize, HumanSize(bytes));
    // Opened read-only for a look at its layout and file systems, closed again at once.
    OpenedSource src;
    std::string error;
    if (!OpenSource(path.toStdString(), src, error)) {
        // The line is marked and keeps the system's reason for its tooltip and the status line.
        // Refused for want of rights that more rights would give: the page also says how.
        const bool denied = MoreRightsWouldHelp(path);
        m_noAccess = m_noAccess || denied;
        // The system's own words are not translated; a refusal for want of rights says so first.
        QString reason = QString::fromStdString(error);
        if (denied) reason = Tx("IDS_UI_NO_ACCESS", "no access") + " (" + reason + ")";
        it->setData(kColName, kRoleError, reason);
        it->setIcon(kColName, style()->standardIcon(QStyle::SP_MessageBoxWarning));
        for (int c = 0; c < kColumns; ++c) {
            it->setToolTip(c, reason);
            it->setForeground(c, QBrush(Qt::darkRed));
        }
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
        // Other systems' partitions show what their table says they hold.
        QString fs = fsKind != FsKind::None ? QString::fromUtf8(FsKindName(fsKind)) : QString();
        if (fsKind == FsKind::None && r.tableType != TableType::None)
            fs = QString::fromUtf8(FsKindName(fsKind)) + " (" + QString::fromUtf8(TableTypeName(r.tableType)) + ")";
        part->setText(kColFs, fs);
        part->setText(kColLabel, PartitionLabel(src, i));
        part->setData(kColName, kRolePath, path);
        part->setData(kColName, kRolePartition, int(i));
    }
}

void CDrivePage::ChooseImageFile() {
    QString path = QFileDialog::getOpenFileName(this, m_addImage->text(), QString(),
                                                Tx("IDS_UI_IMAGE_FILTER", "Disk images") +
                                                    " (*.img *.dd *.raw *.bin *.001 *.iso *.E01 *.e01 *.vhd *.vhdx"
                                                    " *.vmdk *.qcow2 *.qcow);;* (*)");
    if (!path.isEmpty()) AddImage(path);
}

void CDrivePage::AddImage(const QString& path) {
    // Listed once: adding it again selects the line it has.
    if (m_imagePaths.contains(path)) {
        if (QTreeWidgetItem* it = ItemOf(path)) m_drives->setCurrentItem(it);
        return;
    }
    m_imagePaths << path;
    auto* it = new QTreeWidgetItem(m_drives);
    it->setData(kColName, kRoleAdded, true);
    Describe(it, path, Tx("IDS_UI_IMAGE_FILE", "Image file"), uint64_t(QFileInfo(path).size()), true);
    it->setExpanded(true);
    m_drives->setCurrentItem(it);
    UpdateHint();
}

} // namespace kestrin::ui
