#include "app/Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>

namespace vorrim {

std::variant<Options, int> parseOptions(int argc, const char* const* argv) {
    Options options;
    bool check_config = false;

    CLI::App app("The server of a peer-to-peer file-sharing network.", "vorrim");
    app.set_version_flag("--version", "vorrim " VORRIM_VERSION, "Print the version and exit");
    app.set_help_flag("--help,-h", "Print this help and exit");
    const CLI::Option* const config =
        app.add_option("--config", options.settings_file,
                       "Read the settings from FILE instead of vorrim.ini of the current folder")
            ->type_name("FILE");
    app.add_flag("--check-config", check_config,
                 "Print every setting with its effective value and every problem with its line, "
                 "and exit: 0 without problems, else 2");
    app.footer(
        "Without options the server reads vorrim.ini, or runs with its defaults when there is "
        "none,\n"
        "until it receives SIGINT or SIGTERM; a second one ends it at once. SIGHUP opens the logs\n"
        "again and reads the welcome lines and the filters again. Its log, its server list and "
        "its\n"
        "diagnostics are kept in the current folder.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& answered) {
        app.exit(answered);
        return Options::kExitDone;
    } catch (const CLI::ParseError& fault) {
        std::fprintf(stderr, "vorrim: %s (--help lists the options)\n", fault.what());
        return Options::kExitUsage;
    }
    options.settings_file_named = config->count() > 0;
    if (check_config) options.action = Options::Action::check_config;
    return options;
}

}  // namespace vorrim
