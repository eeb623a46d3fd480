#pragma once
// Texts for whoever debugs the process. There is no debugger to send them to as messages, so they
// go to standard error, which a debugger and a service manager both show.
//
// Threads: any.

#include <string_view>

namespace vorrim {

void debugger_print(std::string_view text) noexcept;

}  // namespace vorrim
