#include "base/proxy/kx_proxy_target.h"

namespace vorrim {

std::string kx_printed(const kx_proxy_target& target) {
    if (target.name) return *target.name;
    std::string dotted;
    for (const std::byte number : target.endpoint.address) {
        if (!dotted.empty()) dotted += '.';
        dotted += std::to_string(std::to_integer<int>(number));
    }
    return dotted;
}

}  // namespace vorrim
