#pragma once
// How the output code talks to the user: message boxes in the desktop program, printed lines on
// the command line. The output code says which texts by their identifiers; the front end looks
// them up in the chosen language and joins the pieces.
#include <string>
#include <utility>
#include <vector>

#include "job/ScanOperation.h"

namespace kestrin {

enum class MessageIcon { Information, Error };

struct UserMessage {
    std::string id;              // names the message ("" for messages built from system codes)
    std::vector<UserText> text;  // what the user reads, piece by piece, joined as they stand
    UserText caption{"IDS_INFORMATION"};
    MessageIcon icon = MessageIcon::Information;
};

// A piece that is not translated: a path, a system error text, a separator.
inline UserText Words(std::string words) { return UserText{"", std::move(words)}; }

// The text of `id`, or `fallback` where the language file lacks it.
inline UserText TextOr(std::string id, std::string fallback) {
    UserText text{std::move(id)};
    text.fallback = std::move(fallback);
    return text;
}

// Where the language file lacks the saving-failed text.
inline constexpr const char* kSavingFailed = "The recovered files could not be saved to";

// The message of one text identifier with the information caption.
inline UserMessage InformationOf(std::string id, std::string fallback = {}) {
    UserText text = TextOr(id, std::move(fallback));
    return {std::move(id), {std::move(text)}};
}

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

} // namespace kestrin
