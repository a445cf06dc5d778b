#pragma once
// Texts of the command line: every sentence the user reads comes from the language file.
#include <string>
#include <string_view>

#include <vector>

#include "job/ScanOperation.h"
#include "output/UserMessages.h"

namespace kestrin {

// The language text of `id`, empty when the language file lacks it; `fallback` only when no
// language file could be read at all (a build run before its language files were copied), so
// such a build still says something.
std::string T(std::string_view id, std::string_view fallback = {});
// T(id) with its "%s" replaced by `arg` (appended after a space when the text has none).
std::string Tf(std::string_view id, std::string_view arg, std::string_view fallback = {});
// The text of a line the worker sent (see UserText).
std::string TextOf(const UserText& text);
// The pieces' texts joined as they stand.
std::string TextOf(const std::vector<UserText>& pieces);
// What a message of the output code says, and its caption.
std::string TextOf(const UserMessage& message);
std::string CaptionOf(const UserMessage& message);
// Chooses the language for this process (--lang); false for an unknown name.
bool ChooseLanguage(const std::string& name);

} // namespace kestrin
