#pragma once
// Qt's own texts (standard buttons, file dialogs, input boxes) in the program's language, from
// the translation catalogues installed with Qt.
#include <QString>

namespace kestrin::ui {

// Installs Qt's catalogue of language `index` (the language table's order) in place of the one
// before; English needs none. False when no catalogue of that language is installed: Qt's texts
// then stay English.
bool UseQtCatalogue(int index);
// The folder the catalogues are looked up in.
QString QtCatalogueFolder();

} // namespace kestrin::ui
