#include "app/ServerOutput.h"

#include <memory>
#include <utility>

#include "base/FormattedText.h"

namespace vorrim {

ServerOutput::ServerOutput(const ServerSettings& settings, OutputWriter& console,
                           const std::string& log_name)
    : settings_(settings),
      log_name_(log_name),
      console_(console),
      log_("log", FileSink::for_log(log_name)) {}

void ServerOutput::vprintLine(const char* format, va_list arguments) {
    FormattedText<kLineBuffer> text(format, arguments);
    text.end_line();
    write(text.view());
}

void ServerOutput::vprintError(const char* format, va_list arguments) {
    write(FormattedText<kLineBuffer>(format, arguments).view());
}

void ServerOutput::vprintVerbose(const char* format, va_list arguments) {
    if (verbose()) write(FormattedText<kLineBuffer>(format, arguments).view());
}

void ServerOutput::vprintLocked(const char* format, va_list arguments) {
    write(FormattedText<kLockedBuffer>(format, arguments).view());
}

void ServerOutput::flush() noexcept {
    log_.flush(OutputWriter::kLastPatience);
    console_.flush(OutputWriter::kLastPatience);
}

void ServerOutput::log(std::string_view text) noexcept {
    if (settings_.logFile) log_.print(text);
}

bool ServerOutput::reopenLog() {
    std::unique_ptr<TextSink> log = FileSink::for_log(log_name_);
    if (!log) return false;
    log_.change_sink(std::move(log));
    return true;
}

void ServerOutput::write(std::string_view text) noexcept {
    log(text);
    if (settings_.console) console_.print(text);
}

}  // namespace vorrim
