#pragma once
// The server's own output: the console, and the file "log" when the settings ask for it.
//
//     format ──► buffer on the stack (cut at its end) ──► log file ──► console
//                                                        one write each, nothing kept back
//
// What happens to the console and to the log never reaches the server: a full disk, a closed pipe
// or a terminal that somebody has stopped costs messages, not the server. A console that takes
// nothing more is passed over, and told afterwards how many messages it has missed.
//
// Threads: any thread prints. Texts of several threads come whole, in any order; those of
// printLocked one after the other.

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

#include "app/ServerSettings.h"
#include "base/Annotations.h"
#include "base/Output.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class ServerOutput final : public Output {
public:
    static constexpr const char* kLogFile = "log";
    static constexpr int kStandardOutput = 1;

    // Opens the log for appending and creates it when it is missing, whatever the settings say;
    // without one the server runs on. The settings' flags `logFile` and `console` are read with
    // each message; the settings must outlive the output, and so must the descriptor `console`.
    explicit ServerOutput(const ServerSettings& settings, const std::string& log_name = kLogFile,
                          int console = kStandardOutput);
    ~ServerOutput() override;

    void vprintLine(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintError(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintVerbose(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintLocked(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));

    // For what the console has shown in its own way: a text for the log alone, if it is on.
    void log(std::string_view text) noexcept;

private:
    void write(std::string_view text) noexcept;
    void show(std::string_view text) noexcept;

    const ServerSettings& settings_;
    const int log_;  // -1: none
    const int console_;
    std::atomic<std::uint32_t> missed_{0};
    kx_critical_section lock_;  // orders the texts of printLocked
};

}  // namespace vorrim
