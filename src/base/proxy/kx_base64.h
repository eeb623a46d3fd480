#pragma once
// Base64 with the usual alphabet and "=" padding (RFC 4648).

#include <string>
#include <string_view>

namespace vorrim {

[[nodiscard]] std::string kx_base64(std::string_view bytes);

}  // namespace vorrim
