#pragma once
// How the library reports what it cannot handle itself.
//
//     kx_error("readAll error")  ──►  location of the calling line, kept for the thread
//                                └─►  kx_error_handler  ──►  throw kx_err
//
// Whoever can say what a failure means catches `kx_err`. One that nobody catches, as a bad_alloc,
// ends the process in kx_fatal_error; the caption of a kx_err names the line that raised it.
//
// Beside errors there are two more channels, warnings and alerts. All three are hooks.
//
// Threads: everything here may be called from any thread. The location is each thread's own.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace vorrim {

class kx_string;

// Thrown by value, caught by reference.
class kx_err final {
public:
    explicit kx_err(std::string message) noexcept : message_(std::move(message)) {}
    [[nodiscard]] const std::string& message() const noexcept { return message_; }

private:
    std::string message_;
};

// Thrown by a thread's function to end that thread without any report.
struct kx_exit_thread_exception final {};

// A longer text is cut to one less than these.
inline constexpr std::size_t kErrorText = 500;
inline constexpr std::size_t kCaptionText = 200;

inline constexpr int kFatalExitStatus = 255;
// Of a program that came to its end, well or by an error.
inline constexpr int kMainExitStatus = 1;

// The source line that last raised an error on this thread. `file` is not copied and must be a
// constant text; null when the thread has raised nothing.
struct kx_error_location final {
    const char* file = nullptr;
    std::int32_t line = 0;
};
void kx_set_error_location(const char* file, std::int32_t line) noexcept;
[[nodiscard]] kx_error_location kx_get_error_location() noexcept;

// Raises `text`: records the caller's location and calls the error handler. The text is taken as it
// is, never as a format.
[[noreturn]] void kx_error(const char* text, const char* file = __builtin_FILE(),
                           std::int32_t line = __builtin_LINE());

// Reports an error that nobody caught in a message box and ends the process with kFatalExitStatus.
[[noreturn]] void kx_fatal_error(const kx_err& error) noexcept;
// "Unrecoverable error at FILE:LINE", without the place when this thread has raised nothing.
[[nodiscard]] std::string kx_fatal_caption();

// The hooks. An error handler that returns is followed by the default one, which throws kx_err.
using kx_error_hook = void (*)(const char* text);
using kx_warning_hook = int (*)(const char* text);
using kx_alert_hook = int (*)(const kx_string& text);

void kx_default_error_handler(const char* text);          // throws
int kx_default_warning_handler(const char* text);         // prints on the debug stream
int kx_default_alert_handler(const kx_string& text);      // prints on the debug stream
int kx_message_box_warning_handler(const char* text);     // debugger channel and a box
int kx_message_box_alert_handler(const kx_string& text);  // a box, then the debug stream

extern std::atomic<kx_error_hook> kx_error_handler;
extern std::atomic<kx_warning_hook> kx_warning_handler;
extern std::atomic<kx_alert_hook> kx_alert_handler;

// Start-up: puts the debug console in console mode and the debug stream on it, leaves standard
// output unbuffered, installs the message-box handlers, and lets message boxes into the log.
void kx_enter_console_mode() noexcept;

// Runs the program and reports a kx_err or std::bad_alloc that leaves it as kx_fatal_error does.
// Returns the exit status, kMainExitStatus either way.
[[nodiscard]] int kx_run_main(const std::function<void()>& program);

}  // namespace vorrim
