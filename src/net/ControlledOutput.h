#pragma once
// The output while a remote administrator holds it: every message goes to the administrator as one
// packet, and nothing of it to the server's console or log. But for printLocked, which nobody uses:
// it is left to the base class, and so goes to standard output.
//
//     print ──► buffer on the stack (cut at 255 bytes) ──► receiver's send queue
//                                                      └─► the saved output, once nobody receives
//
// Ownership   One object serves all administrators, one after the other, and lives as long as
//             threads print: a thread that has just looked up the current output may still come
//             with its message when the administrator is gone.
// Threads     Any thread prints. The receiver is used under the lock here, so it cannot vanish
//             meanwhile; inside it only the lock of its send queue is taken.

#include <string_view>

#include "base/Annotations.h"
#include "base/Output.h"
#include "base/kx_critical_section.h"
#include "net/RemoteConsole.h"

namespace vorrim {

class ControlledOutput final : public Output {
public:
    // From now on messages go to `receiver`; the ones that come after its time, to `saved`, which
    // must live as long as this object is used.
    void attach(MessageReceiver& receiver, Output& saved);
    // After the call the receiver gets nothing more.
    void detach();

    void vprintLine(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void vprintError(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    // Whether or not `verbose` is on.
    void vprintVerbose(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0)));
    void notify(const char* text) override;
    void flush() noexcept override;

private:
    // False when there is no receiver; `saved` is then where the message belongs.
    [[nodiscard]] bool pass_on(std::string_view text, Output*& saved) noexcept;

    kx_critical_section lock_;
    MessageReceiver* receiver_ GUARDED_BY(lock_) = nullptr;
    Output* saved_ GUARDED_BY(lock_) = nullptr;
};

}  // namespace vorrim
