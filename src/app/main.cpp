#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <unistd.h>
#include <variant>

#include "app/ConfigCheck.h"
#include "app/Options.h"
#include "app/OutputWriter.h"
#include "app/Server.h"
#include "app/StandardInput.h"
#include "app/StopSignal.h"
#include "app/TextSink.h"
#include "base/Clock.h"
#include "base/LineEditor.h"
#include "base/Output.h"
#include "base/Random.h"
#include "base/kx_err.h"
#include "base/kx_init.h"
#include "net/kx_net.h"

namespace vorrim {

namespace {

// A standard descriptor that the caller has closed would be given to the next file or client, which
// would then receive the console's texts.
void hold_standard_descriptors() {
    int descriptor = ::open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = ::dup(descriptor);
    if (descriptor > STDERR_FILENO) ::close(descriptor);
}

int check_config(const Options& options) {
    const std::unique_ptr<kx_net_protocol> net = kx_create_tcpip_protocol();
    const ConfigReport report =
        checkConfig(options.settings_file,
                    options.settings_file_named ? MissingFile::is_a_problem : MissingFile::is_fine,
                    [&net] { return localAddress(*net); });
    std::fputs(report.text.c_str(), stdout);
    return report.good ? Options::kExitDone : Options::kExitUsage;
}

int serve(const Options& options) {
    // All of them outlive the report of an error, which goes to the console and the log too.
    std::optional<StopSignal> stop_signal;
    std::optional<LineEditor> editor;
    std::optional<OutputWriter> console;
    std::optional<StandardInput> input;
    std::unique_ptr<kx_net_protocol> net;
    std::optional<Server> server;
    return kx_run_main([&] {
        stop_signal.emplace(STDIN_FILENO);
        if (LineEditor::possible(STDIN_FILENO, STDOUT_FILENO))
            editor.emplace(STDIN_FILENO, STDOUT_FILENO);
        LineEditor* const line_editor = editor ? &*editor : nullptr;
        console.emplace("console", console_sink(STDOUT_FILENO, line_editor));
        input.emplace(*stop_signal, STDIN_FILENO, *console, line_editor);
        net = kx_create_tcpip_protocol();
        kx_init();
        server.emplace(*net, system_clock(), Random::from_system(), *input, *console);
        server->start(options.settings_file);
        stop_signal->onHangUp([&] { server->reload(); });
        server->run();
        stop_signal->endWaits();
        server->stop();
        kx_uninit();
    });
}

}  // namespace

}  // namespace vorrim

int main(int argc, char** argv) {
    using namespace vorrim;
    hold_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    // A file that may not grow is a write that fails, as on a full disk, and no reason to end.
    std::signal(SIGXFSZ, SIG_IGN);
    const auto parsed = parseOptions(argc, argv);
    if (const int* const status = std::get_if<int>(&parsed)) return *status;
    const Options& options = std::get<Options>(parsed);
    if (options.action == Options::Action::check_config) return check_config(options);
    kx_enter_console_mode();
    return serve(options);
}
