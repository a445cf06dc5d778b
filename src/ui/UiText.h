#pragma once
// Window texts: looked up by identifier in the current language file. A text the file lacks is
// empty, like every lookup of the program; the English fallback only stands in when no language
// file could be read at all (a build whose data folder was not copied), so the window is usable.
#include <QString>

namespace kestrin::ui {

// Text of `id`; empty when the language file lacks it, `fallback` when there is no language file.
QString Tx(const char* id, const char* fallback = nullptr);
// The caption of the program's message boxes ("IDS_KESTRIN").
QString Caption();

} // namespace kestrin::ui
