#pragma once
// The server's own output: the console, and the file "log" when the settings ask for it.
//
//     format ──► buffer on the stack (cut at its end) ──┬─► log's queue ──► file
//                                                       └─► console's queue ──► terminal or pipe
//
// What happens to the console and to the log never reaches the server, neither as a failure nor as
// a wait: a full disk, a closed pipe or a terminal that somebody has stopped costs messages, and
// how many they were is told afterwards.
//
// Threads: any thread prints. Texts of several threads come whole, in any order.

#include <cstdarg>
#include <string>
#include <string_view>

#include "app/OutputWriter.h"
#include "app/ServerSettings.h"
#include "base/Output.h"

namespace vorrim {

class ServerOutput final : public Output {
public:
    static constexpr const char* kLogFile = "log";

    // Opens the log for appending and creates it when it is missing, whatever the settings say;
    // without one the server runs on. The settings' flags `logFile` and `console` are read with
    // each message; the settings must outlive the output, and so must the console.
    ServerOutput(const ServerSettings& settings, OutputWriter& console,
                 const std::string& log_name = kLogFile);

    void vprintLine(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintError(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintVerbose(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintLocked(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void flush() noexcept override;

    // For what the console has shown in its own way: a text for the log alone, if it is on.
    void log(std::string_view text) noexcept;
    // Any thread: the log file of that name is another one now. False, and the old one stays, when
    // it cannot be opened.
    [[nodiscard]] bool reopenLog();

private:
    void write(std::string_view text) noexcept;

    const ServerSettings& settings_;
    const std::string log_name_;
    OutputWriter& console_;
    OutputWriter log_;
};

}  // namespace vorrim
