#pragma once
// Help > About: the program's version and licence, the libraries it runs with and their
// versions, and where its documentation is.
#include <QDialog>
#include <QString>
#include <QStringList>

namespace kestrin::ui {

class CAboutDialog final : public QDialog {
    Q_OBJECT
public:
    explicit CAboutDialog(QWidget* parent = nullptr);
};

// "Qt 6.4.2", "libzip 1.7.3", ...: the libraries the program runs with (versions as loaded where
// the library can say, else as built against).
QStringList LibraryVersions();
// The program's documentation (README.md of the installed or built program); empty when the
// program was copied without it.
QString DocumentationPath();

} // namespace kestrin::ui
