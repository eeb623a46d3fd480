#pragma once
// The registry of the user: texts and numbers under keys, kept in one text file.
//
//     # a remark
//     [HKEY_CURRENT_USER\Software\Brannoc\Proxy]
//     protocol=HTTPS
//     pword=" begins with a blank"
//
// A line in square brackets names the key of the lines that follow, down to the next one. A value
// is its name, "=" and what it holds: the rest of the line without the blanks around it, and
// without one pair of double quotes around that. Lines that begin with "#" or ";", and lines that
// are nothing of all this, mean nothing. Keys and names have no case. Of two values with one name
// the first counts.
//
// The file may hold a password: it is written readable for its user alone.
//
// Errors: nothing raises. A file that is missing, cannot be read or is longer than kMostBytes is an
// empty registry.
// Threads: none inside; reading from several at once is safe.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorrim {

class Registry final {
public:
    static constexpr std::size_t kMostBytes = 64 * 1024;

    // Reads the file now; what changes on the disk afterwards is not seen.
    explicit Registry(std::string file);

    // "vorrim/registry" in the user's configuration folder: $XDG_CONFIG_HOME, or else
    // $HOME/.config. Empty when neither is an absolute path; there is no registry then.
    [[nodiscard]] static std::string file_of_user();

    // None when the key or the value is missing.
    [[nodiscard]] std::optional<std::string> text(std::string_view key,
                                                  std::string_view name) const;
    // None also when it is not a decimal number of 32 bits.
    [[nodiscard]] std::optional<std::uint32_t> number(std::string_view key,
                                                      std::string_view name) const;

    // Stores a text in the file, with its key and the file's folder where they are missing; the
    // other lines stay as they are. False, with nothing changed, when there was a file that could
    // not be read, when the system refuses, or when the text has bytes that no line can hold (NUL
    // and line ends).
    [[nodiscard]] bool set_text(std::string_view key, std::string_view name, std::string_view text);

private:
    [[nodiscard]] std::optional<std::size_t> line_of_key(std::string_view key) const;
    [[nodiscard]] std::optional<std::size_t> line_of_value(std::string_view key,
                                                           std::string_view name) const;

    std::string file_;
    bool known_ = false;  // what the file has: else it must not be replaced
    std::vector<std::string> lines_;
};

}  // namespace vorrim
