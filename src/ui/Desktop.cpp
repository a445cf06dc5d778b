#include "ui/Desktop.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#include "ui/UiText.h"

namespace kestrin::ui {

void IDesktop::Inform(QWidget* parent, const QString& text) { Tell(parent, Caption(), text, Sign::Information); }

void IDesktop::Warn(QWidget* parent, const QString& text) { Tell(parent, Caption(), text, Sign::Warning); }

void IDesktop::Fail(QWidget* parent, const QString& text) { Tell(parent, Caption(), text, Sign::Error); }

bool IDesktop::Ask(QWidget* parent, const QString& text, bool defaultYes) {
    return Ask(parent, Tx("IDS_CONFIRM"), text, defaultYes);
}

void CDesktop::Tell(QWidget* parent, const QString& caption, const QString& text, Sign sign) {
    switch (sign) {
    case Sign::Information: QMessageBox::information(parent, caption, text); break;
    case Sign::Warning: QMessageBox::warning(parent, caption, text); break;
    case Sign::Error: QMessageBox::critical(parent, caption, text); break;
    }
}

bool CDesktop::Ask(QWidget* parent, const QString& caption, const QString& text, bool defaultYes) {
    return QMessageBox::question(parent, caption, text, QMessageBox::Yes | QMessageBox::No,
                                 defaultYes ? QMessageBox::Yes : QMessageBox::No) == QMessageBox::Yes;
}

QString CDesktop::Locate(QWidget* parent, const QString& question, const QString& missingPath) {
    QMessageBox box(QMessageBox::Question, Tx("IDS_CONFIRM"), question, QMessageBox::Cancel, parent);
    QPushButton* browse = box.addButton(Tx("IDS_UI_BROWSE", "Browse..."), QMessageBox::AcceptRole);
    box.setDefaultButton(browse);
    box.exec();
    if (box.clickedButton() != browse) return {};
    QFileInfo missing(missingPath);
    // Starts where the file was when that folder is still there.
    QString start = missing.absoluteDir().exists() ? missing.absolutePath() : QString();
    return QFileDialog::getOpenFileName(parent, Tx("IDS_UI_BROWSE", "Browse..."), start, missing.fileName() + ";;* (*)");
}

bool CDesktop::OpenInViewer(const QString& path) { return QDesktopServices::openUrl(QUrl::fromLocalFile(path)); }

bool CDesktop::TellWithAction(QWidget* parent, const QString& caption, const QString& text, Sign sign,
                              const QString& action) {
    QMessageBox::Icon icon = sign == Sign::Information ? QMessageBox::Information
                             : sign == Sign::Warning   ? QMessageBox::Warning
                                                       : QMessageBox::Critical;
    QMessageBox box(icon, caption, text, QMessageBox::Ok, parent);
    QPushButton* act = box.addButton(action, QMessageBox::ActionRole);
    box.setDefaultButton(QMessageBox::Ok);
    box.exec();
    return box.clickedButton() == act;
}

bool CDesktop::OpenFolder(const QString& folder) { return QDesktopServices::openUrl(QUrl::fromLocalFile(folder)); }

} // namespace kestrin::ui
