#include "base/proxy/kx_registry_value.h"

#include <optional>

namespace vorrim {

namespace {

std::optional<std::string> stored(const Registry& registry, std::string_view name) {
    std::optional<std::string> text = registry.text(kProxyKey, name);
    if (text && text->size() >= kRegistryTextRoom) text.reset();
    return text;
}

}  // namespace

std::string kx_registry_value(const Registry& registry, std::string_view name,
                              std::string_view default_text) {
    return stored(registry, name).value_or(std::string(default_text));
}

std::string kx_registry_value(Registry& registry, std::string_view name,
                              std::string_view default_text, RegistryWrite write) {
    if (write == RegistryWrite::when_missing) {
        if (std::optional<std::string> text = stored(registry, name)) return *text;
    }
    static_cast<void>(registry.set_text(kProxyKey, name, default_text));
    return std::string(default_text);
}

}  // namespace vorrim
