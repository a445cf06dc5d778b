#include "output/UserMessages.h"

#ifdef KESTRIN_HAVE_APP
#include "app/Language.h"
#endif

namespace kestrin {

std::string LookupText(std::string_view id, std::string_view fallback) {
#ifdef KESTRIN_HAVE_APP
    // A text missing from the language file shows as empty, never as its identifier.
    (void)fallback;
    return app::Text(id);
#else
    return std::string(fallback.empty() ? id : fallback);
#endif
}

} // namespace kestrin
