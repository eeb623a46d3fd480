#pragma once
// One text of the proxy's own registry key.
//
// Threads: as the registry. Nothing raises.

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace vorrim {

inline constexpr std::string_view kProxyKey = R"(HKEY_CURRENT_USER\Software\Brannoc\Proxy)";
// Room for one text and its terminator; a longer one counts as missing, for half a password or half
// a host name is a wrong one.
inline constexpr std::size_t kRegistryTextRoom = 512;

// The text stored under `name`, or `default_text` when there is none. The registry stays as it is.
[[nodiscard]] std::string kx_registry_value(const Registry& registry, std::string_view name,
                                            std::string_view default_text);

enum class RegistryWrite {
    when_missing,  // reads, and stores the default when there is no text
    always,        // stores the default in place of whatever is there
};
// The text that is stored afterwards. Where the system refuses to store, the default all the same.
std::string kx_registry_value(Registry& registry, std::string_view name,
                              std::string_view default_text, RegistryWrite write);

}  // namespace vorrim
