#include "output/UserMessages.h"

#ifdef KESTRIN_HAVE_APP
#include "app/Language.h"
#endif

namespace kestrin {

std::string LookupText(std::string_view id, std::string_view fallback) {
#ifdef KESTRIN_HAVE_APP
    std::string text = app::Text(id);
    if (!text.empty()) return text;
#endif
    return std::string(fallback.empty() ? id : fallback);
}

} // namespace kestrin
