#include "output/UserMessages.h"

#include "app/Language.h"

namespace kestrin {

std::string LookupText(std::string_view id, std::string_view fallback) {
    // A text missing from the language file shows as empty, never as its identifier.
    (void)fallback;
    return app::Text(id);
}

} // namespace kestrin
