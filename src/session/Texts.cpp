#include "session/Texts.h"

#include "app/Language.h"

namespace kestrin {

std::string T(std::string_view id, std::string_view fallback) {
    std::string t = app::Text(id);
    // A text the language file lacks is empty, as everywhere in the program.
    if (t.empty() && !app::HaveTexts()) t = std::string(fallback);
    // Profile readers keep quotes that protect spaces at either end; drop them.
    if (t.size() >= 2 && t.front() == '"' && t.back() == '"') t = t.substr(1, t.size() - 2);
    return t;
}

std::string Tf(std::string_view id, std::string_view arg, std::string_view fallback) {
    std::string t = T(id, fallback);
    size_t at = t.find("%s");
    if (at == std::string::npos) return t.empty() ? std::string(arg) : t + " " + std::string(arg);
    return t.substr(0, at) + std::string(arg) + t.substr(at + 2);
}

std::string TextOf(const UserText& text) {
    if (text.id.empty()) return text.arg;
    if (text.argId) return Tf(text.id, T(text.arg, text.fallback));
    if (text.arg.empty()) return T(text.id, text.fallback);
    return Tf(text.id, text.arg, text.fallback);
}

std::string TextOf(const std::vector<UserText>& pieces) {
    std::string joined;
    for (const UserText& piece : pieces) joined += TextOf(piece);
    return joined;
}

std::string TextOf(const UserMessage& message) { return TextOf(message.text); }

std::string CaptionOf(const UserMessage& message) { return TextOf(message.caption); }

bool ChooseLanguage(const std::string& name) { return app::UseLanguageByName(name); }

} // namespace kestrin
