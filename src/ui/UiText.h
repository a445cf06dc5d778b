#pragma once
// Window texts: looked up by identifier in the current language file. Texts only the desktop
// program uses carry an English fallback for language files that do not have them yet.
#include <QString>

namespace kestrin::ui {

// Text of `id`; `fallback` when the language file lacks it (the identifier when both are empty).
QString Tx(const char* id, const char* fallback = nullptr);
// The caption of the program's message boxes ("IDS_KESTRIN").
QString Caption();

} // namespace kestrin::ui
