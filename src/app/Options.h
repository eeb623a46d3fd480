#pragma once
// The command line. Without arguments the server runs with "vorrim.ini" of the current folder.

#include <string>
#include <variant>

namespace vorrim {

struct Options {
    static constexpr const char* kDefaultSettingsFile = "vorrim.ini";

    enum class Action { serve, check_config };

    Action action = Action::serve;
    std::string settings_file = kDefaultSettingsFile;
    bool settings_file_named = false;  // by --config, so that its absence is a surprise

    // Exit statuses besides those of the server itself.
    static constexpr int kExitDone = 0;
    static constexpr int kExitUsage = 2;
};

// The options, or the exit status when the command line is already dealt with: --help and --version
// have been answered on standard output, or one line on standard error says what is wrong.
[[nodiscard]] std::variant<Options, int> parseOptions(int argc, const char* const* argv);

}  // namespace vorrim
