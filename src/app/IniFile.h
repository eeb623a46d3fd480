#pragma once
// A settings file: sections of key=value lines, looked up by section and key.
//
//     [server]           the whole line, to the letter; the first such line opens the section
//     maxClients=600     split at the first "="; nothing is trimmed
//     room[0]=Lobby      one of an indexed row
//     [other]            any line that starts with "[" ends the section
//
// There is no comment syntax. Within a section the first line of a key counts. A line ends at LF or
// CR LF (the last one may do without) and has no limit; what follows a NUL byte in it is ignored.
//
// Ownership: the file is read as a whole by `open`, and every view handed out lives until `close`
// or the next `open`. Threads: none inside. Errors: a failed lookup is an empty optional.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorrim {

class IniFile final {
public:
    struct Entry {
        std::string_view key;
        std::string_view value;
    };

    // One line of the file, for whoever wants to say something about it.
    struct Line {
        std::string_view text;
        std::string_view section;  // whose lookups see the line; empty: nobody's
        bool cut = false;          // a NUL byte ended it early
    };

    IniFile() = default;
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    // False when the file cannot be opened or read; nothing can be found in it then.
    [[nodiscard]] bool open(const std::string& path);
    // Takes the text of a file as read.
    void assign(std::string text);
    void close() noexcept;

    [[nodiscard]] std::optional<std::string_view> getString(std::string_view section,
                                                            std::string_view key) const;
    // Leading white space, a sign, digits; what follows is ignored, and no digits at all are 0. A
    // number too large keeps its low 32 bits.
    [[nodiscard]] std::optional<std::int32_t> getInt(std::string_view section,
                                                     std::string_view key) const;
    // "true" or "false" in any letter case; any other value is as good as none.
    [[nodiscard]] std::optional<bool> getBool(std::string_view section, std::string_view key) const;
    // The key "key[n]".
    [[nodiscard]] std::optional<std::string_view> getIndexed(std::string_view section,
                                                             std::string_view key,
                                                             std::int32_t n) const;

    // All lines in order; line numbers are indices plus one.
    [[nodiscard]] const std::vector<Line>& lines() const noexcept { return lines_; }
    [[nodiscard]] static Entry split(std::string_view line) noexcept;
    [[nodiscard]] static std::int32_t toInt(std::string_view value);
    [[nodiscard]] static std::optional<bool> toBool(std::string_view value);
    [[nodiscard]] static std::string indexedKey(std::string_view key, std::int32_t n);

private:
    using Section = std::map<std::string_view, std::string_view>;

    void addLine(std::string_view text, Section*& open_section, std::string_view& open_name);

    std::string text_;
    std::vector<Line> lines_;
    std::map<std::string_view, Section> sections_;
};

}  // namespace vorrim
