#pragma once
// How the output code talks to the user: message boxes in the desktop program, printed lines on
// the command line. Texts are looked up by identifier before they get here.
#include <string>
#include <string_view>

namespace kestrin {

enum class MessageIcon { Information, Error };

struct UserMessage {
    std::string id;      // the identifier the text came from ("" for texts built from system codes)
    std::string text;    // what the user reads
    std::string caption; // box caption
    MessageIcon icon = MessageIcon::Information;
};

class IUserMessages {
public:
    virtual ~IUserMessages() = default;
    virtual void Show(const UserMessage& message) = 0;
};

// Discards everything (tests, fuzzing, callers that report by other means).
class CSilentMessages final : public IUserMessages {
public:
    void Show(const UserMessage&) override {}
};

// Text of `id` in the current language; the identifier itself when the language file lacks it,
// so a missing translation never shows an empty box.
// `fallback` stands in for identifiers that a language file may not carry yet.
std::string LookupText(std::string_view id, std::string_view fallback = {});

} // namespace kestrin
