#pragma once
// A terminal to write on that is never waited for long, and that no text can steer: control
// characters are replaced.
//
// Threads: any; texts of several threads may mingle.

#include <string_view>

#include "platform/Descriptor.h"

namespace vorrim {

class Screen final {
public:
    // The descriptor must outlive the screen. Raises kx_err when the system has none left.
    explicit Screen(int output);

    // Another description of the terminal, which does not wait where the system grants one.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    [[nodiscard]] int columns() const noexcept;

    // Tabs and newlines stay. A terminal that takes nothing for a while loses the rest: false.
    bool show(std::string_view text) const;
    // The same for the program's own control sequences: nothing is replaced.
    bool control(std::string_view keys) const noexcept;

private:
    const Descriptor descriptor_;
};

}  // namespace vorrim
