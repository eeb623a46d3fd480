#pragma once
// Where every message of the server goes: one process-wide current output.
//
//     current_output().printLine("Server count: %d", n)
//                          │  varargs
//                          ▼
//                      vprintLine  (virtual: standard output, console and log, a remote controller)
//
// An output cuts a text that is longer than its buffer: 255 bytes, 511 for printLocked. No
// operation allocates, and none raises.
//
// Threads: all operations may be called from any thread; texts of several threads come whole, in
// any order.

#include <atomic>
#include <cstdarg>
#include <cstddef>

namespace vorrim {

// The formatting buffers, each with its terminating zero.
inline constexpr std::size_t kLineBuffer = 256;
inline constexpr std::size_t kLockedBuffer = 512;

// The base prints on standard output and is not interested in notices.
class Output {
public:
    Output() = default;
    virtual ~Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // One message and a newline.
    void printLine(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // One message as it is.
    void printError(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // One message as it is, only while `verbose`.
    void printVerbose(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // One message as it is; outputs with a lock hold it meanwhile.
    void printLocked(const char* format, ...) __attribute__((format(printf, 2, 3)));

    virtual void vprintLine(const char* format, va_list arguments)
        __attribute__((format(printf, 2, 0)));
    virtual void vprintError(const char* format, va_list arguments)
        __attribute__((format(printf, 2, 0)));
    virtual void vprintVerbose(const char* format, va_list arguments)
        __attribute__((format(printf, 2, 0)));
    virtual void vprintLocked(const char* format, va_list arguments)
        __attribute__((format(printf, 2, 0)));
    // A notice with one text.
    virtual void notify(const char* text);
    // For outputs that let nobody wait: waits a moment until what was printed before is out.
    virtual void flush() noexcept {}

    // False when created.
    [[nodiscard]] bool verbose() const noexcept { return verbose_.load(std::memory_order_relaxed); }
    void set_verbose(bool verbose) noexcept { verbose_.store(verbose, std::memory_order_relaxed); }

private:
    std::atomic<bool> verbose_{false};
};

// Never null: an Output of the base class until another is set.
[[nodiscard]] Output& current_output() noexcept;
// Null sets the first one again. Returns the output replaced. The caller keeps the new one alive
// until another is set and no thread prints on it any more.
Output* set_current_output(Output* output) noexcept;

// Makes an output current for its own lifetime.
class [[nodiscard]] ScopedOutput final {
public:
    explicit ScopedOutput(Output& output) noexcept : replaced_(set_current_output(&output)) {}
    ~ScopedOutput() { set_current_output(replaced_); }
    ScopedOutput(const ScopedOutput&) = delete;
    ScopedOutput& operator=(const ScopedOutput&) = delete;

private:
    Output* replaced_;
};

}  // namespace vorrim
