#include "ui/Desktop.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#include "ui/UiText.h"

namespace kestrin::ui {

void IDesktop::Inform(QWidget* parent, const QString& text) { Tell(parent, Caption(), text, Sign::Information); }

void IDesktop::Warn(QWidget* parent, const QString& text) { Tell(parent, Caption(), text, Sign::Warning); }

bool IDesktop::Ask(QWidget* parent, const QString& text, bool defaultYes) {
    return Ask(parent, Caption(), text, defaultYes);
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
