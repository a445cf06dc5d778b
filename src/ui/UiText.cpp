#include "ui/UiText.h"

#include "app/Language.h"

namespace kestrin::ui {

QString Tx(const char* id, const char* fallback) {
    std::string t = app::Text(id);
    if (!t.empty() || app::HaveTexts()) return QString::fromStdString(t);
    return QString::fromUtf8(fallback ? fallback : "");
}

QString Caption() { return Tx("IDS_KESTRIN", "Kestrin"); }

} // namespace kestrin::ui
