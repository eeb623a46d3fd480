#pragma once
// The commands, one file each (or one for a family). Each prints its findings on standard output,
// as text or as one JSON document, and says whether there were any.
//
// Errors: Failure, to be reported by the caller.

#include <string>

#include "Failure.h"
#include "Options.h"
#include "Server.h"
#include "Terminal.h"
#include "net/kx_net.h"

namespace vorrim::cli {

struct Context {
    const Options& options;
    Terminal terminal;
    kx_net_protocol& net;

    [[nodiscard]] Server server() const { return {options.host, options.port}; }
};

[[nodiscard]] Outcome run_status(const Context& context);
[[nodiscard]] Outcome run_publish(const Context& context);
[[nodiscard]] Outcome run_search(const Context& context);
[[nodiscard]] Outcome run_sources(const Context& context);
[[nodiscard]] Outcome run_users(const Context& context);
[[nodiscard]] Outcome run_servers(const Context& context);
[[nodiscard]] Outcome run_callback(const Context& context);
[[nodiscard]] Outcome run_admin(const Context& context);

// The whole program: options, the command, and the line that says why it failed.
[[nodiscard]] int run_cli(int argc, const char* const* argv);

}  // namespace vorrim::cli
