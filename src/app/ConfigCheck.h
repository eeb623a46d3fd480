#pragma once
// The settings file as the server would understand it, and what its author may not have meant.
//
//     vorrim.ini
//       maxClients    = 5000     (line 3)
//       port          = 4661     (default)
//       ...
//     vorrim.ini:7: unknown key "maxclients": did you mean "maxClients"?
//     1 problem

#include <string>

#include "app/IniFile.h"
#include "app/ServerSettings.h"

namespace vorrim {

// One thing wrong; line 0 stands for the file as a whole.
struct ConfigProblem {
    std::size_t line;
    std::string text;
};

// What is wrong with a settings file, in the order of its lines. An empty result: nothing.
[[nodiscard]] std::vector<ConfigProblem> findProblems(const IniFile& ini);

enum class MissingFile { is_fine, is_a_problem };

// The whole report, as printed. `good` tells whether there was no problem.
struct ConfigReport {
    std::string text;
    bool good;
};
[[nodiscard]] ConfigReport checkConfig(const std::string& file_name, MissingFile missing,
                                       const ServerSettings::LocalAddress& local_address);

}  // namespace vorrim
