#include "base/Output.h"

#include <cstdio>

#include "base/FormattedText.h"

namespace vorrim {

namespace {

Output& first_output() noexcept {
    // Never destroyed: threads and static objects may print to the very end.
    static Output& output = *new Output;
    return output;
}

std::atomic<Output*> current{nullptr};

// One write call for one text, so that texts of several threads stay whole.
template <std::size_t Size>
__attribute__((format(printf, 1, 0))) void print(const char* format, va_list arguments,
                                                 bool newline) {
    FormattedText<Size> text(format, arguments);
    if (newline) text.end_line();
    std::fwrite(text.view().data(), 1, text.view().size(), stdout);
}

}  // namespace

void Output::printLine(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vprintLine(format, arguments);
    va_end(arguments);
}

void Output::printError(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vprintError(format, arguments);
    va_end(arguments);
}

void Output::printVerbose(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vprintVerbose(format, arguments);
    va_end(arguments);
}

void Output::printLocked(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vprintLocked(format, arguments);
    va_end(arguments);
}

void Output::vprintLine(const char* format, va_list arguments) {
    print<kLineBuffer>(format, arguments, true);
}

void Output::vprintError(const char* format, va_list arguments) {
    print<kLineBuffer>(format, arguments, false);
}

void Output::vprintVerbose(const char* format, va_list arguments) {
    if (verbose()) print<kLineBuffer>(format, arguments, false);
}

void Output::vprintLocked(const char* format, va_list arguments) {
    print<kLockedBuffer>(format, arguments, false);
}

void Output::notify(const char* /*text*/) {}

Output& current_output() noexcept {
    Output* output = current.load(std::memory_order_acquire);
    return output != nullptr ? *output : first_output();
}

Output* set_current_output(Output* output) noexcept {
    Output* replaced = current.exchange(output, std::memory_order_acq_rel);
    return replaced != nullptr ? replaced : &first_output();
}

}  // namespace vorrim
