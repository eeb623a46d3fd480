#include "base/string/kx_strtok.h"

#include <algorithm>

#include "base/string/strings.h"

namespace vorrim {

std::int32_t kx_strtok(std::string_view text, const kx_char_set& delimiters, std::int32_t start,
                       std::string_view& token, std::size_t limit) noexcept {
    token = {};
    if (start < 0) return 0;
    // Positions are 32 bits wide; a text beyond them ends there.
    const std::size_t end =
        std::min<std::size_t>(text.size(), std::numeric_limits<std::int32_t>::max());
    auto at = static_cast<std::size_t>(start);
    if (at > end) return 0;
    while (at < end && delimiters.contains(text[at]))
        if (++at == end) return 0;

    const std::size_t begin = at;
    while (at < end && at - begin < limit && !delimiters.contains(text[at]))
        ++at;
    token = text.substr(begin, at - begin);
    return at == end ? kx_strtok_end : static_cast<std::int32_t>(at);
}

std::int32_t kx_strtok(std::string_view text, std::string_view delimiters, std::int32_t start,
                       std::span<char> buffer) noexcept {
    std::string_view token;
    const std::size_t room = buffer.empty() ? 0 : buffer.size() - 1;
    const std::int32_t next = kx_strtok(text, kx_char_set(delimiters), start, token, room);
    kx_strncpy(buffer, token);
    return next;
}

}  // namespace vorrim
