#pragma once
// What remote administration needs of the operator's console. The application's console
// implements it.
//
//     Controller ── login, execute, stop ──► RemoteConsole
//                ◄── receive (every message printed meanwhile) ──┘

#include <string_view>

namespace vorrim {

// Who gets the server's messages while it holds the output.
class MessageReceiver {
public:
    // One message, from any thread, possibly under locks of the server: it is queued and no more,
    // and nothing is printed here.
    virtual void receive(std::string_view text) = 0;

protected:
    MessageReceiver() = default;
    ~MessageReceiver() = default;
};

// Any thread.
class RemoteConsole {
public:
    virtual ~RemoteConsole() = default;

    // Wrong: name or password, or nobody may log in. Busy: they are right, but somebody holds the
    // output.
    enum class Login { good, wrong, busy };
    // After a good one `holder` holds the output, until it calls releaseOutput. One step: of two
    // that log in at once, one is refused.
    [[nodiscard]] virtual Login login(std::string_view name, std::string_view password,
                                      MessageReceiver& holder) = 0;
    // Gives the output back if `holder` holds it. No message reaches it after the call.
    virtual void releaseOutput(MessageReceiver& holder) = 0;
    // Runs a line as one that was typed at the server.
    virtual void execute(std::string_view line) = 0;
    // Asks the server to shut down.
    virtual void stop() = 0;
};

}  // namespace vorrim
