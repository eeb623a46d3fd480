#include "net/ControlledOutput.h"

#include <new>

#include "base/FormattedText.h"
#include "base/kx_err.h"

namespace vorrim {

namespace {

using Text = FormattedText<kLineBuffer>;

}  // namespace

void ControlledOutput::attach(MessageReceiver& receiver, Output& saved) {
    const kx_guard hold(lock_);
    receiver_ = &receiver;
    saved_ = &saved;
}

void ControlledOutput::detach() {
    const kx_guard hold(lock_);
    receiver_ = nullptr;
}

bool ControlledOutput::pass_on(std::string_view text, Output*& saved) noexcept {
    const kx_guard hold(lock_);
    saved = saved_;
    if (receiver_ == nullptr) return false;
    try {
        receiver_->receive(text);
    } catch (const kx_err&) {
        // Out of memory: the message is lost, whoever prints it goes on.
    } catch (const std::bad_alloc&) {
        // The same.
    }
    return true;
}

void ControlledOutput::vprintLine(const char* format, va_list arguments) {
    const Text text(format, arguments);
    Output* saved = nullptr;
    if (!pass_on(text.view(), saved) && saved != nullptr) saved->printLine("%s", text.c_str());
}

void ControlledOutput::vprintError(const char* format, va_list arguments) {
    const Text text(format, arguments);
    Output* saved = nullptr;
    if (!pass_on(text.view(), saved) && saved != nullptr) saved->printError("%s", text.c_str());
}

void ControlledOutput::vprintVerbose(const char* format, va_list arguments) {
    const Text text(format, arguments);
    Output* saved = nullptr;
    if (!pass_on(text.view(), saved) && saved != nullptr) saved->printVerbose("%s", text.c_str());
}

void ControlledOutput::notify(const char* text) {
    printError("Controlled Connected to: %s\n", text);
}

void ControlledOutput::flush() noexcept {
    Output* saved = nullptr;
    {
        const kx_guard hold(lock_);
        saved = saved_;
    }
    if (saved != nullptr) saved->flush();
}

}  // namespace vorrim
