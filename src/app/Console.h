#pragma once
// The operator's command interpreter: a table of commands, questions to be confirmed, the running
// flag, and what remote administration needs of it.
//
//     console line ───────────────┐                           ┌──► handler
//                    answer?      ├──► execute ──► the table ─┤
//     remote command ─────────────┘                           └──► unrecognized
//
// A question is put on the current output, but answered on the server's own console, whoever asked:
// the next line there is the answer. Until then everything else goes on.
//
// Threads: `run` and `readAndExecute` belong to one thread, the main one; the rest to any thread.
// The locks here are leaves, but for the output that is handed over under one of them.

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/ConsoleInput.h"
#include "base/Annotations.h"
#include "base/Output.h"
#include "base/kx_critical_section.h"
#include "net/ControlledOutput.h"
#include "net/RemoteConsole.h"

namespace vorrim {

class Console : public RemoteConsole {
public:
    // Lengths of a line and of an answer, in bytes; what goes beyond is dropped.
    static constexpr std::size_t kLongestLine = 254;
    static constexpr std::size_t kLongestAnswer = 81;
    static constexpr std::string_view kPrompt = "> ";

    // The input must outlive the console.
    explicit Console(ConsoleInput& input) : input_(input) {}
    ~Console() override;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    [[nodiscard]] bool running() const noexcept { return running_.load(); }
    // Clears the running flag. `run` notices it after the console line that is being waited for,
    // or at once when it waits for none.
    void stop() override;

    // Returns once the running flag is clear. Lines are executed if `reads_lines`, as long as the
    // input has any; otherwise, and from then on, time passes quietly.
    void run(bool reads_lines);
    // One line: the answer to a question that waits, else a command, which may fail: then it says
    // so. False when the input gave none.
    bool readAndExecute(ConsoleInput::Wake wake = ConsoleInput::Wake::waits);

    void execute(std::string_view line) override;

    // Without both, remote control is off. Whoever holds the output keeps it.
    void setRemoteCredentials(std::optional<std::string> name, std::optional<std::string> password);
    // A good login takes the output. Texts are compared in a time that tells nothing of them.
    [[nodiscard]] Login login(std::string_view name, std::string_view password,
                              MessageReceiver& holder) override;
    void releaseOutput(MessageReceiver& holder) override;

protected:
    using Handler = std::function<void(std::string_view line)>;

    // A handler gets the whole line and may be called by two threads at a time. Commands are added
    // before anything else is done with the console.
    void addCommand(std::string_view name, Handler handler);
    // A line that names no command.
    virtual void unrecognized(std::string_view line);

    // Puts a question; `yes` is called on the main thread if the answer begins with "y" or "Y".
    void confirm(std::string_view question, std::function<void()> yes);

    struct Credentials {
        std::optional<std::string> name;
        std::optional<std::string> password;
    };
    [[nodiscard]] Credentials remoteCredentials() const;

private:
    struct Command {
        std::string name;
        Handler handler;
    };

    [[nodiscard]] bool checkRemoteLogin(std::string_view name, std::string_view password) const
        REQUIRES(remote_lock_);
    [[nodiscard]] bool is_administrator(std::string_view name, std::string_view password) const
        REQUIRES(remote_lock_);
    [[nodiscard]] bool takeOutput(MessageReceiver& holder) REQUIRES(remote_lock_);
    void give_output_back() REQUIRES(remote_lock_);

    void carry_out(std::string_view line);
    [[nodiscard]] bool question_waits() const;
    // False when no question waits.
    bool answer(std::string_view line);

    ConsoleInput& input_;
    std::vector<Command> commands_;
    std::atomic<bool> running_{true};
    bool input_ended_ = false;

    mutable kx_critical_section question_lock_;
    std::deque<std::function<void()>> questions_ GUARDED_BY(question_lock_);

    mutable kx_critical_section remote_lock_;
    Credentials credentials_ GUARDED_BY(remote_lock_);
    bool remote_control_ GUARDED_BY(remote_lock_) = false;
    MessageReceiver* holder_ GUARDED_BY(remote_lock_) = nullptr;
    Output* saved_ GUARDED_BY(remote_lock_) = nullptr;
    ControlledOutput forwarding_;
};

}  // namespace vorrim
