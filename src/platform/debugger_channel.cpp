#include "platform/debugger_channel.h"

#include <atomic>
#include <cstdio>

namespace vorrim {

namespace {
std::atomic<DebuggerHook> debugger_hook{nullptr};
}

void debugger_print(std::string_view text) noexcept {
    if (const DebuggerHook hook = debugger_hook.load()) {
        hook(text);
    } else {
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
}

void set_debugger_hook(DebuggerHook hook) noexcept {
    debugger_hook.store(hook);
}

}  // namespace vorrim
