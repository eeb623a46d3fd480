#pragma once
// Who logs in as administrator, and with what password.
//
//     name       --user, else the first of two lines of --password-file, else VORRIM_ADMIN_NAME,
//                else the terminal
//     password   --password-file, else VORRIM_ADMIN_PASSWORD, else the terminal, without echo
//
// Never from the command line: every user of a machine can read that.

#include <string>

#include "Commands.h"
#include "Interrupt.h"

namespace vorrim::cli {

struct AdminAccount {
    std::string name;
    std::string password;
};

// Warns on standard error of a password file that others may read. Raises Failure when something is
// missing and nobody is there to be asked, and when a signal comes meanwhile.
[[nodiscard]] AdminAccount admin_account(const Context& context, const Interrupt& interrupt);

}  // namespace vorrim::cli
