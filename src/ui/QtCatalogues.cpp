#include "ui/QtCatalogues.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

#include "app/Language.h"

namespace kestrin::ui {

QString QtCatalogueFolder() { return QLibraryInfo::path(QLibraryInfo::TranslationsPath); }

bool UseQtCatalogue(int index) {
    // One translator for the life of the program, filled again on each change.
    static QTranslator* translator = nullptr;
    if (translator) {
        QCoreApplication::removeTranslator(translator);
        delete translator;
        translator = nullptr;
    }
    if (index <= 0 || index >= app::kLanguageCount) return index == 0;
    auto* t = new QTranslator;
    // "qt_fr.qm" draws in the module catalogues it names (qtbase_fr.qm and the rest).
    if (!t->load(QStringLiteral("qt_") + QString::fromLatin1(app::kLanguageCodes[index]), QtCatalogueFolder())) {
        delete t;
        return false;
    }
    QCoreApplication::installTranslator(t);
    translator = t;
    return true;
}

} // namespace kestrin::ui
