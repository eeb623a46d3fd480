// Publishing, and staying: what a client has published lasts as long as its connection.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <poll.h>

#include "Commands.h"
#include "Conversation.h"
#include "Interrupt.h"
#include "Publisher.h"
#include "Records.h"
#include "Text.h"

namespace vorrim::cli {

namespace {

using Clock = std::chrono::steady_clock;

// The line that is written over and over while files are hashed.
class ProgressLine {
public:
    explicit ProgressLine(const Context& context)
        : context_(context),
          shown_(context.terminal.errors_are_terminal() && !context.options.json) {}
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(const PublishProgress& progress) {
        if (!shown_) return;
        const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        const double rate = static_cast<double>(progress.bytes_done) / std::max(seconds, 0.001);
        std::string line = "  " + readable_count(progress.files_done) + " of " +
                           readable_count(progress.files_total) + " files, " +
                           readable_size(progress.bytes_done) + " of " +
                           readable_size(progress.bytes_total) + ", " +
                           readable_size(static_cast<std::uint64_t>(rate)) + "/s";
        if (rate > 0 && progress.bytes_total > progress.bytes_done) {
            const double left =
                static_cast<double>(progress.bytes_total - progress.bytes_done) / rate;
            line += ", " +
                    readable_time(std::chrono::seconds(static_cast<std::int64_t>(left) + 1)) +
                    " left";
        }
        std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
        std::fflush(stderr);
    }

    void clear() {
        if (shown_) clear_progress(context_);
    }

private:
    const Context& context_;
    bool shown_;
    Clock::time_point start_ = Clock::now();
};

void say(const Context& context, const std::string& line) {
    if (!context.options.json) print_line(line);
}

std::string identity(const Session& session, const Listener& listener) {
    const ClientId id = session.id();
    if (id.exceeds_low_range()) {
        return "connected as " + dotted(id) + ", reachable on port " +
               std::to_string(listener.port());
    }
    return "connected as " + dotted(id) + ", not reachable from outside: others need a call-back";
}

void report(const Context& context, const Session& session, const Listener& listener,
            const PublishResult& result, std::chrono::nanoseconds elapsed) {
    if (context.options.json) {
        print_json({{"command", "publish"},
                    {"server", context.server().text()},
                    {"self", source_json({session.id(), listener.port()})},
                    {"files", result.files},
                    {"bytes", result.bytes},
                    {"copies", result.copies},
                    {"unreadable", result.unreadable},
                    {"lists", result.lists},
                    {"elapsed_ms", in_milliseconds(elapsed)}});
        return;
    }
    std::string line = "published " + counted(result.files, "file", "files") + " (" +
                       readable_size(result.bytes) + ") in " + readable_time(elapsed);
    if (result.copies > 0) {
        line += "; left out " + counted(result.copies, "copy", "copies") + " of the same content";
    }
    if (result.unreadable > 0)
        line += "; " + readable_count(result.unreadable) + " could not be read";
    print_line(line);
}

// Keeps the session alive until Ctrl-C.
void stay(Session& session, Listener& listener, const Interrupt& interrupt) {
    for (;;) {
        std::array<pollfd, 3> watched = {pollfd{interrupt.handle(), POLLIN, 0},
                                         pollfd{session.handle(), POLLIN, 0},
                                         pollfd{listener.handle(), POLLIN, 0}};
        if (::poll(watched.data(), watched.size(), -1) < 0) continue;
        if (watched[0].revents != 0) return;
        if (watched[1].revents != 0) session.handle_arrived();
        if (watched[2].revents != 0) (void)listener.greet();
    }
}

}  // namespace

Outcome run_publish(const Context& context) {
    if (context.options.udp)
        throw Failure("files are published over a connection only: leave out --udp");
    std::optional<Listener> listener = listen_as_asked(context, std::uint16_t{0});
    Session session = connected_session(context);
    session.on_callback([&context](ClientId asker, std::uint16_t port) {
        const std::string line =
            dotted(asker) + ':' + std::to_string(port) + " asks this client to connect";
        clear_progress(context);
        // With --json, standard output holds one document and nothing else.
        if (context.options.json) {
            std::fprintf(stderr, "%s\n", line.c_str());
        } else {
            print_line(line);
        }
    });
    session.login(context.options.name, listener->port());
    say(context, identity(session, *listener));

    const Interrupt interrupt;
    const auto start = Clock::now();
    const FoundFiles found = find_files(context.options.paths);
    say(context, "found " + counted(found.files.size(), "file", "files") + ", " +
                     readable_size(found.bytes));
    PublishResult result;
    {
        ProgressLine line(context);
        Publisher publisher(session, [&](const PublishProgress& progress) {
            line.show(progress);
            (void)listener->greet();
            return !interrupt.pending();
        });
        result = publisher.publish(found);
    }
    if (result.interrupted) {
        throw Failure("interrupted after " + counted(result.files, "file", "files"));
    }
    report(context, session, *listener, result, Clock::now() - start);
    if (result.files == 0) return Outcome::nothing;

    say(context, "staying connected so that the files can be found; Ctrl-C ends this");
    stay(session, *listener, interrupt);
    say(context, "disconnected");
    return Outcome::found;
}

}  // namespace vorrim::cli
