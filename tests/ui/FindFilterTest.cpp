// The results page as someone looking for a lost file uses it: the filter bar alone and combined
// on a scanned NTFS image, with the open folders and the selection kept; natural order; find
// next and previous going round with a message; system folders hidden and never saved empty;
// thumbnails decoded in the background.
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDir>
#include <QLineEdit>
#include <QListView>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QToolButton>
#include <QTreeView>
#include <QtTest>

#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "TestImages.h"
#include "app/Language.h"
#include "fs/VolumeTree.h"
#include "ui/CFileListModel.h"
#include "ui/CFilterBar.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CMainWindow.h"
#include "ui/CNodeFilterProxy.h"
#include "ui/CResultsPage.h"
#include "ui/CThumbnailModel.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

QString NameOf(const CNode* n) { return QString::fromStdU16String(n->name); }

// The nodes a view's model shows below `parent`, in row order.
QList<CNode*> Rows(const QAbstractItemView* view, const QModelIndex& parent = {}) {
    QList<CNode*> out;
    auto* proxy = qobject_cast<const CNodeFilterProxy*>(view->model());
    for (int r = 0; proxy && r < proxy->rowCount(parent); ++r) out << proxy->NodeOf(proxy->index(r, 0, parent));
    return out;
}

QModelIndex TreeIndex(QTreeView* folders, CNode* n) {
    auto* proxy = static_cast<CNodeFilterProxy*>(folders->model());
    return proxy->mapFromSource(static_cast<CFolderTreeModel*>(proxy->sourceModel())->IndexOf(n));
}

template <class W>
W* Child(QWidget* root, const char* name) {
    W* w = root->findChild<W*>(name);
    if (!w) qWarning("no widget %s", name);
    return w;
}

CNode* AddNode(CNode* parent, std::u16string name, uint16_t flags, uint64_t size) {
    auto* n = new CNode;
    n->name = std::move(name);
    n->nameLength = uint8_t(n->name.size());
    n->flags = flags;
    n->size = size;
    parent->AppendChild(n);
    return n;
}

} // namespace

class FindFilterTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QStringList m_messages;
    test::RecordingDesktop m_desktop{&m_messages};
    std::string m_image;

    // The NTFS fixture scanned in the deleted-files mode, shown on the results page.
    std::unique_ptr<CMainWindow> Open() {
        auto w = std::make_unique<CMainWindow>(m_desktop);
        w->resize(1100, 700);
        w->show();
        w->ChooseMode(RecoveryMode::DeletedFiles);
        if (!w->OpenAndContinue(QString::fromStdString(m_image)) || w->CurrentPage() != CMainWindow::kResultsPage) return nullptr;
        return w;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid());
        QVERIFY(test::MakeProgramFolder(m_program, {.settings = true}));
        app::InitLanguage(m_program.path().toStdString());
        app::ChangeLanguage(0);
        m_image = test::UnpackImage("ntfs-features");
        QVERIFY(!m_image.empty());
    }

    void namesMatchAndSortAsPeopleExpect() {
        CNamePattern live("REPORT", false);
        QVERIFY(live.Matches(u"Annual report.docx"));
        QVERIFY(!live.Matches(u"Budget.xlsx"));
        CNamePattern whole("*.JP?G", true);
        QVERIFY(whole.Matches(u"a.jpeg") && whole.Matches(u".JPEG") && !whole.Matches(u"a.jpg") && !whole.Matches(u"a.jpeg.txt"));
        QVERIFY(CNamePattern("*a*b?c*", true).Matches(u"xxaXXbYcZZ"));
        QVERIFY(!CNamePattern("*a*b?c", true).Matches(u"xxaXXbYcZZ"));
        QVERIFY(CNamePattern("Ü*", true).Matches(u"überweisung.pdf"));

        std::vector<std::u16string> names{u"file10.txt", u"File2.txt", u"file1.txt", u"file02.txt", u"file2.txt",
                                          u"file", u"file100", u"a9999999999999999999999b", u"a10b"};
        std::sort(names.begin(), names.end(), NaturalLess);
        std::vector<std::u16string> want{u"a10b", u"a9999999999999999999999b", u"file", u"file1.txt", u"File2.txt",
                                         u"file2.txt", u"file02.txt", u"file10.txt", u"file100"};
        QVERIFY(names == want);

        QCOMPARE(int(FileKindOfName(u"IMG.NEF")), int(FileKind::Pictures));
        QCOMPARE(int(FileKindOfName(u"x.docx")), int(FileKind::Documents));
        QCOMPARE(int(FileKindOfName(u"x.7z")), int(FileKind::Archives));
        QCOMPARE(int(FileKindOfName(u"x.m4a")), int(FileKind::Audio));
        QCOMPARE(int(FileKindOfName(u"x.mov")), int(FileKind::Video));
        QCOMPARE(int(FileKindOfName(u"$Quota")), int(FileKind::Other));
    }

    // The list sorts names naturally with folders first and sizes as numbers; the size column
    // keeps its kilobytes and tells the exact byte count in its tip.
    void listOrderAndExactSizes() {
        std::unique_ptr<CNode> top(MakeTopNode());
        CNode* vol = AddNode(top.get(), u".", 3, 0);
        AddNode(vol, u"file10.txt", 1, 5000);
        AddNode(vol, u"File2.txt", 1, 900);
        AddNode(vol, u"file1.txt", 1, 3u << 20);
        AddNode(vol, u"zeta", 3, 0);
        CResultsState state;
        state.SetTop(top.get());
        CFileListModel list(state);
        list.SetFolder(vol);
        CNodeFilterProxy sorter(CNodeFilterProxy::Rows::Files);
        sorter.setSourceModel(&list);
        sorter.sort(CFileListModel::kName, Qt::AscendingOrder);
        QStringList order;
        for (int r = 0; r < sorter.rowCount(); ++r) order << NameOf(sorter.NodeOf(sorter.index(r, 0)));
        QCOMPARE(order, QStringList({"zeta", "file1.txt", "File2.txt", "file10.txt"}));
        sorter.sort(CFileListModel::kSize, Qt::AscendingOrder);
        order.clear();
        for (int r = 0; r < sorter.rowCount(); ++r) order << sorter.index(r, CFileListModel::kSize).data().toString();
        QCOMPARE(order, QStringList({"0 KB", "0 KB", "4 KB", "3,072 KB"})); // a folder shows 0 KB too
        QModelIndex small = sorter.index(1, CFileListModel::kSize);
        QCOMPARE(small.data(Qt::ToolTipRole).toString(), QString("900 bytes"));
        state.SetTop(nullptr);
    }

    void filtersAloneAndCombinedKeepTreeAndSelection() {
        auto w = Open();
        QVERIFY(w);
        auto* page = w->findChild<CResultsPage*>();
        QTreeView* folders = w->FolderView();
        QTreeView* files = page->ListView();
        CNode* docs = test::FindPath(w->Tree(), "Documents");
        CNode* reports = test::FindPath(w->Tree(), "Documents/Reports");
        CNode* todo = test::FindPath(w->Tree(), "Documents/todo.txt");
        QVERIFY(docs && reports && todo);
        folders->setExpanded(TreeIndex(folders, docs), true);
        folders->setExpanded(TreeIndex(folders, reports), true);
        folders->setCurrentIndex(TreeIndex(folders, docs));
        QCOMPARE(w->ListModel()->Folder(), docs);
        const QList<CNode*> all = Rows(files);
        QVERIFY(all.size() > 10);
        files->setCurrentIndex(files->model()->index(Rows(files).indexOf(todo), 0));

        // Each filter alone: exactly the rows of the folder that qualify, and the tree as it was.
        auto check = [&](const char* what, auto&& qualifies) {
            QList<CNode*> shown = Rows(files), want;
            for (CNode* n : all)
                if (qualifies(n)) want << n;
            std::sort(shown.begin(), shown.end());
            std::sort(want.begin(), want.end());
            QVERIFY2(!want.isEmpty() && want.size() < all.size(), what);
            QVERIFY2(shown == want, what);
            QModelIndex r = TreeIndex(folders, reports); // hidden while only deleted items show
            QVERIFY2(folders->isExpanded(TreeIndex(folders, docs)) && (!r.isValid() || folders->isExpanded(r)), what);
            QCOMPARE(w->ListModel()->Folder(), docs);
        };
        auto* text = Child<QLineEdit>(page, "filterText");
        text->setText("*.txt");
        check("name", [](CNode* n) { return !n->IsFolder() && NameOf(n).endsWith(".txt"); });
        QCOMPARE(page->ListView()->currentIndex().isValid() ? Rows(files).value(files->currentIndex().row()) : nullptr, todo);
        text->setText("deleted");
        check("plain text", [](CNode* n) { return !n->IsFolder() && NameOf(n).contains("deleted"); });
        text->clear();

        auto* kind = Child<QComboBox>(page, "filterKind");
        kind->setCurrentIndex(int(FileKind::Documents));
        check("documents", [](CNode* n) {
            QString s = NameOf(n).section('.', -1);
            return !n->IsFolder() && QStringList({"pdf", "rtf", "txt", "docx", "doc"}).contains(s);
        });
        kind->setCurrentIndex(int(FileKind::Pictures));
        check("pictures", [](CNode* n) { return NameOf(n) == "deleted picture.jpg"; });
        kind->setCurrentIndex(0);

        auto* minKB = Child<QSpinBox>(page, "filterMinSize");
        auto* maxKB = Child<QSpinBox>(page, "filterMaxSize");
        minKB->setValue(1);
        maxKB->setValue(10);
        check("size", [](CNode* n) { return !n->IsFolder() && n->size >= 1024 && n->size < 11 * 1024; });
        minKB->setValue(0);
        maxKB->setValue(0);

        // Modified dates: from the middle of the folder's dates on.
        QList<uint16_t> dates;
        for (CNode* n : all)
            if (!n->IsFolder() && n->modifiedDate) dates << n->modifiedDate;
        std::sort(dates.begin(), dates.end());
        QVERIFY(dates.size() > 2 && dates.front() != dates.back());
        uint16_t mid = dates[dates.size() / 2];
        if (mid == dates.front()) mid = dates.back();
        auto* from = Child<QDateEdit>(page, "filterFrom");
        from->setDate(QDate(1980 + (mid >> 9), (mid >> 5) & 15, mid & 31));
        check("date", [&](CNode* n) { return !n->IsFolder() && n->modifiedDate >= mid; });
        from->setDate(from->minimumDate());

        auto* deleted = Child<QCheckBox>(page, "deletedOnly");
        deleted->setChecked(true);
        check("deleted", [](CNode* n) { return n->IsDeleted(); });
        // The folder without deleted items left the tree, and is open again once it is back.
        QVERIFY(!TreeIndex(folders, reports).isValid());
        QVERIFY(w->Results().DeletedOnly());

        // Combined: deleted documents.
        kind->setCurrentIndex(int(FileKind::Documents));
        check("deleted documents", [](CNode* n) {
            return n->IsDeleted() && (NameOf(n).endsWith(".txt") || NameOf(n).endsWith(".pdf"));
        });
        text->setText("*.pdf");
        check("deleted pdf", [](CNode* n) { return n->IsDeleted() && NameOf(n).endsWith(".pdf"); });
        Child<QToolButton>(page, "clearFilters")->click();
        QCOMPARE(Rows(files).size(), all.size());
        QVERIFY(!w->Results().DeletedOnly());
        QVERIFY(folders->isExpanded(TreeIndex(folders, reports)));
        QCOMPARE(w->ListModel()->Folder(), docs);
    }

    void findNextAndPreviousGoRound() {
        auto w = Open();
        QVERIFY(w);
        auto* page = w->findChild<CResultsPage*>();
        QList<CNode*> matches;
        CNamePattern pattern("deleted*", true);
        ForEachNode(w->Tree(), [&](CNode* n) {
            if (pattern.Matches(n->name)) matches << n;
        });
        QVERIFY(matches.size() >= 3);
        QList<CNode*> seen;
        for (int i = 0; i < matches.size(); ++i) {
            seen << page->FindNext("DELETED*");
            QVERIFY2(page->FindMessage().isEmpty(), qPrintable(page->FindMessage()));
        }
        QCOMPARE(seen, matches);
        // Past the last one: round to the first, and a word about it.
        QCOMPARE(page->FindNext("deleted*"), matches.front());
        QCOMPARE(page->FindMessage(), QString::fromStdString(app::Text("IDS_UI_FIND_WRAPPED_TOP")));
        QCOMPARE(page->FindPrevious("deleted*"), matches.back());
        QCOMPARE(page->FindMessage(), QString::fromStdString(app::Text("IDS_UI_FIND_WRAPPED_BOTTOM")));
        QCOMPARE(page->FindPrevious("deleted*"), matches[matches.size() - 2]);
        QVERIFY(page->FindMessage().isEmpty());
        // F3 and Shift+F3 go on with the last pattern from the list.
        page->ListView()->setFocus();
        QTest::keyClick(page->ListView(), Qt::Key_F3);
        QCOMPARE(w->ListModel()->Folder(), matches.back()->parent);
        QTest::keyClick(page->ListView(), Qt::Key_F3, Qt::ShiftModifier);
        QCOMPARE(w->ListModel()->Folder(), matches[matches.size() - 2]->parent);
        // A filter narrows what find can reach.
        Child<QComboBox>(page, "filterKind")->setCurrentIndex(int(FileKind::Pictures));
        QCOMPARE(NameOf(page->FindNext("deleted*")), QString("deleted picture.jpg"));
        QCOMPARE(NameOf(page->FindNext("deleted*")), QString("deleted picture.jpg"));
        QVERIFY(!page->FindMessage().isEmpty());
    }

    void systemFoldersHiddenAndNeverSavedEmpty() {
        auto w = Open();
        QVERIFY(w);
        auto* page = w->findChild<CResultsPage*>();
        QTreeView* folders = w->FolderView();
        CNode* vol = FindChild(w->Tree(), u".");
        QVERIFY(vol);
        CNode* extend = FindChild(vol, u"$Extend");
        CNode* lost = FindChild(vol, u"Lost");
        QVERIFY(extend && lost);
        QModelIndex volIdx = TreeIndex(folders, vol);
        QVERIFY(volIdx.isValid());
        QVERIFY(!Rows(folders, volIdx).contains(extend));
        // "Lost" holds the orphans here, so it stays.
        QCOMPARE(Rows(folders, volIdx).contains(lost), lost->firstChild != nullptr);
        QAction* hide = nullptr;
        for (QAction* a : page->ViewActions())
            if (a->objectName() == "hideSystemFolders") hide = a;
        QVERIFY(hide && hide->isChecked());
        hide->trigger();
        QVERIFY(Rows(folders, TreeIndex(folders, vol)).contains(extend));
        hide->trigger();
        QVERIFY(!Rows(folders, TreeIndex(folders, vol)).contains(extend));

        // An emptied "Lost" and a "$Extend" whose files are unticked are ticked but not written.
        while (CNode* c = lost->firstChild) {
            lost->Unlink(c);
            delete c;
        }
        w->Results().SetTop(w->Tree()); // the views let go of the removed folders
        w->Results().MarkAll(false);
        w->Results().SetChecked(extend, true);
        ForEachNode(extend, [](CNode* n) { n->checked = n->IsFolder(); });
        extend->checked = 1;
        lost->checked = 1;
        CNode* todo = test::FindPath(w->Tree(), "Documents/todo.txt");
        w->Results().SetChecked(todo, true);
        QTemporaryDir out;
        QVERIFY(w->SaveTo(out.path(), kCollisionRename));
        QCOMPARE(w->LastSave().files, 1u);
        QVERIFY(QFile::exists(out.filePath("Documents/todo.txt")));
        QVERIFY(!QFile::exists(out.filePath("Lost")));
        QVERIFY(!QFile::exists(out.filePath("$Extend")));
    }

    void thumbnailsDecodeInTheBackground() {
        auto w = Open();
        QVERIFY(w);
        auto* page = w->findChild<CResultsPage*>();
        CNode* beach = test::FindPath(w->Tree(), "Pictures/Holidays/Beach at sunset.jpg");
        QVERIFY(beach);
        page->ShowThumbnails(true);
        QVERIFY(page->ThumbnailView()->isVisible());
        w->FolderView()->setCurrentIndex(TreeIndex(w->FolderView(), beach->parent));
        CThumbnailModel* model = page->ThumbnailModel();
        QModelIndex idx;
        for (int r = 0; r < model->rowCount(); ++r)
            if (model->NodeOf(model->index(r, 0)) == beach) idx = model->index(r, 0);
        QVERIFY(idx.isValid());
        QSignalSpy ready(model, &QAbstractItemModel::dataChanged);
        QPixmap first = idx.data(Qt::DecorationRole).value<QPixmap>();
        QVERIFY(!first.isNull());
        QTRY_VERIFY_WITH_TIMEOUT(idx.data(Qt::DecorationRole).value<QPixmap>().cacheKey() != first.cacheKey(), 10000);
        QTRY_VERIFY(!ready.isEmpty()); // the decoded picture may be asked for before its signal arrives
        QPixmap thumb = idx.data(Qt::DecorationRole).value<QPixmap>();
        QVERIFY(thumb.width() <= 128 && thumb.height() <= 128);
        QVERIFY(thumb.width() == 128 || thumb.height() == 128 || (thumb.width() > 16 && thumb.height() > 16));
        // The selection goes along to the list and back.
        page->ThumbnailView()->setCurrentIndex(idx);
        page->ShowThumbnails(false);
        QCOMPARE(Rows(page->ListView()).value(page->ListView()->currentIndex().row()), beach);

        // A deleted photo's picture carries the list's red cross, in its middle.
        CNode* gone = test::FindPath(w->Tree(), "Documents/deleted picture.jpg");
        QVERIFY(gone && gone->IsDeleted());
        page->ShowThumbnails(true);
        w->FolderView()->setCurrentIndex(TreeIndex(w->FolderView(), gone->parent));
        QModelIndex at;
        for (int r = 0; r < model->rowCount(); ++r)
            if (model->NodeOf(model->index(r, 0)) == gone) at = model->index(r, 0);
        QVERIFY(at.isValid());
        auto middle = [&] {
            QImage img = at.data(Qt::DecorationRole).value<QPixmap>().toImage();
            return img.isNull() ? QColor() : img.pixelColor(img.width() / 2, img.height() / 2);
        };
        const qint64 icon = at.data(Qt::DecorationRole).value<QPixmap>().cacheKey();
        QTRY_VERIFY_WITH_TIMEOUT(at.data(Qt::DecorationRole).value<QPixmap>().cacheKey() != icon, 10000);
        QColor c = middle();
        QVERIFY2(c.red() > 150 && c.green() < 80 && c.blue() < 80, qPrintable(c.name()));
        page->ShowThumbnails(false);
    }
};

QTEST_MAIN(FindFilterTest)
#include "FindFilterTest.moc"
