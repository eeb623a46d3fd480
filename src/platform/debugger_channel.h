#pragma once
// Texts for whoever debugs the process. There is no debugger to send them to as messages, so they
// go to standard error, which a debugger and a service manager both show.
//
// Threads: any.

#include <string_view>

namespace vorrim {

void debugger_print(std::string_view text) noexcept;

// Takes the place of standard error; null: standard error again.
using DebuggerHook = void (*)(std::string_view text);
void set_debugger_hook(DebuggerHook hook) noexcept;

}  // namespace vorrim
