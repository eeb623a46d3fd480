#pragma once
// The one way a command ends without success: a line for the person who typed it, exit code 2.

#include <string>
#include <utility>

namespace vorrim::cli {

// What a command ends with; scripts rely on the numbers.
enum class Outcome { found = 0, nothing = 1, error = 2 };

class Failure {
public:
    explicit Failure(std::string line) : line_(std::move(line)) {}
    // One line, without a line end and without a full stop.
    [[nodiscard]] const std::string& line() const noexcept { return line_; }

private:
    std::string line_;
};

// The server has ended the connection.
class Closed : public Failure {
public:
    using Failure::Failure;
};

}  // namespace vorrim::cli
