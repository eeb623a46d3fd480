#include "platform/message_box.h"

#include <atomic>
#include <cstdio>

namespace vorrim {

namespace {
std::atomic<MessageBoxHook> box_hook{nullptr};
}

MessageBoxAnswer message_box(std::string_view caption, std::string_view text,
                             MessageBoxButtons /*buttons*/) noexcept {
    std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(caption.size()), caption.data(),
                 static_cast<int>(text.size()), text.data());
    if (const MessageBoxHook hook = box_hook.load()) hook(caption, text);
    return MessageBoxAnswer::ok;
}

void set_message_box_hook(MessageBoxHook hook) noexcept {
    box_hook.store(hook);
}

}  // namespace vorrim
