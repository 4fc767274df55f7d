#include "recorder/texts.h"

#include <cstdlib>
#include <string_view>

namespace vehicle_recorder {

Language language_of_environment() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            const std::string_view locale = value;
            const bool is_finnish = locale == "fi" || locale.starts_with("fi_") || locale.starts_with("fi.");
            return is_finnish ? Language::finnish : Language::english;
        }
    }
    return Language::english;
}

}  // namespace vehicle_recorder
