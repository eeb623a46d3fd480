#include "platform/debugger_channel.h"

#include <cstdio>

namespace vorrim {

void debugger_print(std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace vorrim
