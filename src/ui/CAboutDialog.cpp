#include "ui/CAboutDialog.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QUrl>
#include <QVBoxLayout>
#include <QtGlobal>
#include <zip.h>
#include <zlib.h>

#include "app/Language.h"
#include "ui/UiText.h"

namespace kestrin::ui {

QStringList LibraryVersions() {
    QStringList out;
    out << QStringLiteral("Qt %1").arg(QString::fromLatin1(qVersion()));
    out << QStringLiteral("libzip %1").arg(QString::fromLatin1(zip_libzip_version()));
    out << QStringLiteral("zlib %1").arg(QString::fromLatin1(zlibVersion()));
#if defined(__clang__)
    out << QStringLiteral("Clang %1").arg(QString::fromLatin1(__clang_version__));
#elif defined(__GNUC__)
    out << QStringLiteral("GCC %1").arg(QString::fromLatin1(__VERSION__));
#endif
    return out;
}

QString DocumentationPath() {
    const QString data = QString::fromStdString(app::CurrentPaths().programFolder);
    // Built: doc/ beside Lang/. Installed: share/doc/kestrin beside share/kestrin.
    for (const QString& candidate : {data + "/doc/README.md", data + "/../doc/kestrin/README.md"}) {
        QFileInfo f(candidate);
        if (f.isFile()) return QDir::cleanPath(f.absoluteFilePath());
    }
    return {};
}

CAboutDialog::CAboutDialog(QWidget* parent) : QDialog(parent) {
    setObjectName("about");
    setWindowTitle(Tx("IDS_UI_ABOUT_TITLE", "About Kestrin"));
    auto* v = new QVBoxLayout(this);
    auto* head = new QHBoxLayout;
    auto* icon = new QLabel;
    icon->setPixmap(windowIcon().pixmap(64, 64));
    head->addWidget(icon, 0, Qt::AlignTop);
    auto* title = new QLabel(QStringLiteral("<h2>Kestrin %1</h2>").arg(QStringLiteral(KESTRIN_VERSION).toHtmlEscaped()) +
                             Tx("IDS_UI_ABOUT_TEXT", "Recovers files from NTFS, FAT and exFAT volumes, lost partitions "
                                                     "and raw sectors. Sources are opened read-only, always.")
                                 .toHtmlEscaped());
    title->setWordWrap(true);
    head->addWidget(title, 1);
    v->addLayout(head);

    QStringList libraries;
    for (const QString& l : LibraryVersions()) libraries << l.toHtmlEscaped();
    QString details = "<p>" + Tx("IDS_UI_ABOUT_LICENCE", "Licence").toHtmlEscaped() + ": " +
                      QStringLiteral(KESTRIN_LICENSE).toHtmlEscaped() + "</p><p>" +
                      Tx("IDS_UI_ABOUT_LIBRARIES", "Libraries").toHtmlEscaped() + ":<br>" + libraries.join("<br>") +
                      "</p>";
    const QString docs = DocumentationPath();
    if (!docs.isEmpty())
        details += "<p><a href=\"" + QUrl::fromLocalFile(docs).toString(QUrl::FullyEncoded) + "\">" +
                   Tx("IDS_UI_DOCUMENTATION", "Documentation").remove('&').toHtmlEscaped() + "</a></p>";
    auto* text = new QLabel(details);
    text->setObjectName("aboutDetails");
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextBrowserInteraction);
    text->setOpenExternalLinks(true);
    v->addWidget(text);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    v->addWidget(buttons);
}

} // namespace kestrin::ui
