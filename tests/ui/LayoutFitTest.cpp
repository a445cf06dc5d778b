// Every page of the main window at its default size, in every language: no label, button, tab
// or column header is narrower than its text, the window keeps its size when the language
// changes, and the panes of the results keep theirs whatever the preview shows.
#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>
#include <QtTest>

#include "FolderIndex.h"
#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "TestImages.h"
#include "app/Language.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CMainWindow.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

QString Describe(const QWidget* w, const QString& text) {
    return QString("%1 \"%2\"").arg(w->metaObject()->className(), text);
}

int TextWidth(const QFontMetrics& fm, const QString& text) {
    int widest = 0;
    for (const QString& line : text.split('\n')) widest = std::max(widest, fm.horizontalAdvance(line));
    return widest;
}

// Every visible text of `root` that is cut: "Class "text": has < needs".
QStringList CutTexts(QWidget* root) {
    QStringList cut;
    auto report = [&](const QWidget* w, const QString& text, int has, int needs) {
        if (has < needs) cut << QString("%1: %2 < %3").arg(Describe(w, text)).arg(has).arg(needs);
    };
    for (QLabel* l : root->findChildren<QLabel*>()) {
        if (!l->isVisibleTo(root) || l->text().isEmpty() || l->textFormat() == Qt::RichText) continue;
        if (l->wordWrap()) report(l, l->text(), l->height(), l->heightForWidth(l->width()));
        else report(l, l->text(), l->contentsRect().width(), TextWidth(l->fontMetrics(), l->text()));
    }
    for (QAbstractButton* b : root->findChildren<QAbstractButton*>()) {
        if (!b->isVisibleTo(root) || b->text().isEmpty()) continue;
        report(b, b->text(), b->width(), b->sizeHint().width());
    }
    for (QComboBox* c : root->findChildren<QComboBox*>()) {
        if (!c->isVisibleTo(root)) continue;
        report(c, c->currentText(), c->width(), c->minimumSizeHint().width());
    }
    for (QTabBar* t : root->findChildren<QTabBar*>()) {
        if (!t->isVisibleTo(root)) continue;
        int pad = t->style()->pixelMetric(QStyle::PM_TabBarTabHSpace, nullptr, t);
        for (int i = 0; i < t->count(); ++i) {
            report(t, t->tabText(i), t->tabRect(i).width(), TextWidth(t->fontMetrics(), t->tabText(i)) + pad);
            report(t, t->tabText(i), t->width(), t->tabRect(i).right() + 1); // not pushed off the edge
        }
    }
    for (QHeaderView* h : root->findChildren<QHeaderView*>()) {
        if (!h->isVisibleTo(root) || h->orientation() != Qt::Horizontal) continue;
        int margin = h->style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, h);
        for (int i = 0; i < h->count(); ++i) {
            if (h->isSectionHidden(i)) continue;
            QString text = h->model()->headerData(i, Qt::Horizontal).toString();
            if (text.isEmpty()) continue;
            report(h, text, h->sectionSize(i), TextWidth(h->fontMetrics(), text) + 2 * margin);
            // The header is as wide as the view: a section that starts past it is not seen.
            report(h, text, h->viewport()->width(), h->sectionViewportPosition(i) + TextWidth(h->fontMetrics(), text));
        }
    }
    return cut;
}

void Settle(QWidget* w) {
    for (int i = 0; i < 3; ++i) QApplication::processEvents();
    if (w->layout()) w->layout()->activate();
    QApplication::processEvents();
}

} // namespace

class LayoutFitTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    test::RecordingDesktop m_desktop;

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid());
        QVERIFY(test::MakeProgramFolder(m_program, {.signatures = true}));
        app::InitLanguage(m_program.path().toStdString());
    }

    void cleanupTestCase() { app::ChangeLanguage(0); }

    // Each page as a user meets it, in each language, at the size the window opens with.
    void everyTextFitsInEveryLanguage() {
        const QString disk = QString::fromStdString(test::UnpackImage("disk-mbr"));
        QVERIFY(!disk.isEmpty());
        QStringList cut;
        for (int lang = 0; lang < app::kLanguageCount; ++lang) {
            CMainWindow w(m_desktop);
            w.show();
            w.findChild<QAction*>(QString("lang%1").arg(app::kLanguageMenuFirst + lang))->trigger();
            Settle(&w);
            const QSize size = w.size();
            auto check = [&](const QString& page) {
                Settle(&w);
                for (const QString& c : CutTexts(&w)) cut << QString("%1/%2: %3").arg(app::kLanguageNames[lang], page, c);
                if (w.size() != size) cut << QString("%1/%2: the window resized itself").arg(app::kLanguageNames[lang], page);
            };
            for (int tab = 0; tab < 3; ++tab) {
                w.ShowModeTab(tab);
                check(QString("modes%1").arg(tab));
            }
            w.ChooseMode(RecoveryMode::DeletedFiles);
            w.AddImageItem(disk);
            check("drives");
            QVERIFY(w.OpenAndContinue(disk));
            QCOMPARE(w.CurrentPage(), CMainWindow::kPartitionPage);
            check("partitions");
            auto* parts = w.findChild<QTreeWidget*>("partitions");
            int ntfs = -1;
            for (int i = 0; i < parts->topLevelItemCount(); ++i)
                if (parts->topLevelItem(i)->text(3) == "NTFS") ntfs = parts->topLevelItem(i)->data(0, Qt::UserRole).toInt();
            QVERIFY(w.ScanPartition(ntfs));
            w.FolderView()->setCurrentIndex(test::FolderIndexOf(w.FolderView(), FindChild(FindChild(w.Tree(), u"."), u"Data")));
            check("results");
        }
        QVERIFY2(cut.isEmpty(), qPrintable("\n" + cut.join("\n")));
    }

    // One window through all the languages keeps its size; the preview shows a picture, then
    // text, then nothing, and the panes beside it do not move; the hex and text view neither
    // wraps nor uses a proportional font.
    void windowAndPanesKeepTheirPlace() {
        CMainWindow w(m_desktop);
        w.show();
        Settle(&w);
        const QSize size = w.size();
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(test::UnpackImage("disk-mbr"))));
        auto* parts = w.findChild<QTreeWidget*>("partitions");
        int ntfs = -1;
        for (int i = 0; i < parts->topLevelItemCount(); ++i)
            if (parts->topLevelItem(i)->text(3) == "NTFS") ntfs = parts->topLevelItem(i)->data(0, Qt::UserRole).toInt();
        QVERIFY(w.ScanPartition(ntfs));
        for (int lang : {1, 2, 3, 4, 0}) {
            w.findChild<QAction*>(QString("lang%1").arg(app::kLanguageMenuFirst + lang))->trigger();
            Settle(&w);
            QCOMPARE(w.size(), size);
        }
        CNode* data = FindChild(FindChild(w.Tree(), u"."), u"Data");
        QVERIFY(data);
        w.FolderView()->setCurrentIndex(test::FolderIndexOf(w.FolderView(), data));
        Settle(&w);
        auto* files = w.findChild<QTreeView*>("files");
        auto* pane = w.findChild<QStackedWidget*>("previewPane");
        QVERIFY(files && pane);
        const QRect listAt = files->geometry(), paneAt = pane->geometry();
        auto select = [&](const char16_t* name) {
            QAbstractItemModel* m = files->model();
            for (int r = 0; r < m->rowCount(); ++r)
                if (m->index(r, 0).data().toString() == QString::fromStdU16String(name)) files->setCurrentIndex(m->index(r, 0));
            Settle(&w);
        };
        select(u"holiday.jpg");
        QVERIFY(!w.findChild<QLabel*>("preview")->pixmap().isNull());
        QCOMPARE(files->geometry(), listAt);
        QCOMPARE(pane->geometry(), paneAt);
        select(u"invoice.pdf");
        auto* text = w.findChild<QPlainTextEdit*>("previewText");
        QCOMPARE(pane->currentWidget(), text);
        QCOMPARE(text->lineWrapMode(), QPlainTextEdit::NoWrap);
        QCOMPARE(text->fontMetrics().horizontalAdvance("iiii"), text->fontMetrics().horizontalAdvance("MMMM"));
        QCOMPARE(files->geometry(), listAt);
        QCOMPARE(pane->geometry(), paneAt);
        files->setCurrentIndex(QModelIndex());
        w.FolderView()->setCurrentIndex(test::FolderIndexOf(w.FolderView(), w.Tree()));
        Settle(&w);
        QCOMPARE(files->geometry(), listAt);
        QCOMPARE(pane->geometry(), paneAt);
        // The pane grows with the window.
        w.resize(size.width() + 300, size.height() + 100);
        Settle(&w);
        QVERIFY(pane->width() > paneAt.width());
        QVERIFY(pane->height() > paneAt.height());
    }
};

QTEST_MAIN(LayoutFitTest)
#include "LayoutFitTest.moc"
