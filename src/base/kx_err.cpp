#include "base/kx_err.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

#include "base/LineEditor.h"
#include "base/Output.h"
#include "base/kx_debug_console.h"
#include "base/string/kx_printf.h"
#include "platform/debugger_channel.h"
#include "platform/message_box.h"

namespace vorrim {

namespace {

thread_local constinit kx_error_location location;

using Caption = std::array<char, kCaptionText>;

// Allocates nothing: memory may be what has run out.
const char* write_caption(Caption& caption) noexcept {
    const kx_error_location where = kx_get_error_location();
    if (where.file == nullptr) return "Unrecoverable error";
    return kx_snprintf(caption, "Unrecoverable error at %s:%d", where.file, where.line);
}

void show_error(const kx_err& error) {
    Caption caption;
    message_box(write_caption(caption), error.message(), MessageBoxButtons::ok);
}

void log_message_box(std::string_view caption, std::string_view text) {
    current_output().printError("%.*s: %.*s\n", static_cast<int>(caption.size()), caption.data(),
                                static_cast<int>(text.size()), text.data());
}

}  // namespace

std::atomic<kx_error_hook> kx_error_handler{&kx_default_error_handler};
std::atomic<kx_warning_hook> kx_warning_handler{&kx_default_warning_handler};
std::atomic<kx_alert_hook> kx_alert_handler{&kx_default_alert_handler};

void kx_set_error_location(const char* file, std::int32_t line) noexcept {
    location = {file, line};
}

kx_error_location kx_get_error_location() noexcept {
    return location;
}

void kx_error(const char* text, const char* file, std::int32_t line) {
    kx_set_error_location(file, line);
    std::array<char, kErrorText> message;
    kx_snprintf(message, "%s", text);
    kx_error_handler.load()(message.data());
    kx_default_error_handler(message.data());
    std::abort();
}

std::string kx_fatal_caption() {
    Caption caption;
    return write_caption(caption);
}

void kx_fatal_error(const kx_err& error) noexcept {
    show_error(error);
    current_output().flush();
    LineEditor::restore_terminal();
    // Not the whole of exit(): other threads still run and use what it would destroy. And not
    // standard input, whose lock a thread that waits for a line holds.
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(kFatalExitStatus);
}

void kx_default_error_handler(const char* text) {
    throw kx_err(text);
}

int kx_default_warning_handler(const char* text) {
    const kx_error_location where = kx_get_error_location();
    if (where.file != nullptr) {
        kx_printf(kx_debug_stream(), "Warning (%s:%d) : %s\n", where.file, where.line, text);
    } else {
        kx_printf(kx_debug_stream(), "Warning %s\n", text);
    }
    return 0;
}

int kx_default_alert_handler(const kx_string& text) {
    kx_printf(kx_debug_stream(), "%S", text);
    return 0;
}

int kx_message_box_warning_handler(const char* text) {
    debugger_print(text);
    debugger_print("\n");
    if (message_box("Warning!", text, MessageBoxButtons::ok_cancel) != MessageBoxAnswer::ok)
        std::_Exit(EXIT_SUCCESS);
    return 1;
}

int kx_message_box_alert_handler(const kx_string& text) {
    message_box("Alert", text.view(), MessageBoxButtons::ok);
    kx_printf(kx_debug_stream(), "Alert : %S", text);
    return 1;
}

void kx_enter_console_mode() noexcept {
    debug_console().set_console_mode(true);
    std::setbuf(stdout, nullptr);
    kx_warning_handler = &kx_message_box_warning_handler;
    kx_alert_handler = &kx_message_box_alert_handler;
    kx_set_debug_stream(&debug_console());
    set_message_box_hook(&log_message_box);
}

int kx_run_main(const std::function<void()>& program) {
    try {
        program();
    } catch (const kx_err& error) {
        show_error(error);
    } catch (const std::bad_alloc&) {
        kx_set_error_location(nullptr, 0);
        show_error(kx_err("out of memory"));
    }
    return kMainExitStatus;
}

}  // namespace vorrim
