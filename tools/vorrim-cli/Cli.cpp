// From the command line to an exit code.

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <memory>

#include "Commands.h"
#include "Text.h"
#include "base/Output.h"
#include "base/kx_err.h"

namespace vorrim::cli {

namespace {

// The decoders below report what they find wrong as a server would. Here the command's own line
// says it.
class Silence final : public Output {
protected:
    void vprintLine(const char*, va_list) override {}
    void vprintError(const char*, va_list) override {}
    void vprintVerbose(const char*, va_list) override {}
};

Outcome run(const Context& context) {
    switch (context.options.command) {
        case Command::status:
            return run_status(context);
        case Command::publish:
            return run_publish(context);
        case Command::search:
            return run_search(context);
        case Command::sources:
            return run_sources(context);
        case Command::users:
            return run_users(context);
        case Command::servers:
            return run_servers(context);
        case Command::callback:
            return run_callback(context);
        case Command::admin:
            return run_admin(context);
    }
    return Outcome::error;
}

int failed(const Terminal& terminal, const std::string& line) {
    std::fprintf(stderr, "vorrim-cli: %s\n", terminal.on_errors(Style::bad, line).c_str());
    return static_cast<int>(Outcome::error);
}

}  // namespace

int run_cli(int argc, const char* const* argv) {
    const ParsedOptions parsed = parse_options(argc, argv);
    if (parsed.exit_code) return *parsed.exit_code;
    std::setlocale(LC_CTYPE, "");  // for the width of characters
    const Terminal terminal = Terminal::detect();
    Silence silence;
    const ScopedOutput quiet(silence);
    const std::unique_ptr<kx_net_protocol> net = kx_create_tcpip_protocol();
    const Context context{parsed.options, terminal, *net};
    try {
        return static_cast<int>(run(context));
    } catch (const Failure& failure) {
        return failed(terminal, failure.line());
    } catch (const kx_err&) {
        // A field that was not there: the reader of that answer had no better words.
        return failed(terminal, "the server sent an answer that cannot be read");
    }
}

}  // namespace vorrim::cli
