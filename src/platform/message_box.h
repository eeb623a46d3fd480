#pragma once
// A message that wants a person's attention. A server has no desktop and nobody who waits before
// it: the box is a line "CAPTION: TEXT" on standard error, and its answer is always OK.
//
// Threads: any.

#include <string_view>

namespace vorrim {

enum class MessageBoxButtons { ok = 0, ok_cancel = 1 };
enum class MessageBoxAnswer { ok = 1, cancel = 2 };

// Returns at once.
MessageBoxAnswer message_box(std::string_view caption, std::string_view text,
                             MessageBoxButtons buttons) noexcept;

// Told of every box after it went to standard error, to bring it into a log; null: nobody.
using MessageBoxHook = void (*)(std::string_view caption, std::string_view text);
void set_message_box_hook(MessageBoxHook hook) noexcept;

}  // namespace vorrim
