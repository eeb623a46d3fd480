#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <string_view>

#include "app/ConfigCheck.h"
#include "app/FilterExpressions.h"
#include "app/SettingKeys.h"
#include "base/string/strings.h"
#include "meta/ClientId.h"

namespace vorrim {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r";

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

bool is_remark(std::string_view line) {
    return line.starts_with(';') || line.starts_with('#');
}

const SettingKey* find_key(std::string_view name) {
    const auto* const place = std::find_if(kSettingKeys.begin(), kSettingKeys.end(),
                                           [&](const SettingKey& key) { return key.name == name; });
    return place != kSettingKeys.end() ? place : nullptr;
}

// The key that somebody who wrote `name` may have had in mind.
const SettingKey* find_similar(std::string_view name) {
    for (const SettingKey& key : kSettingKeys)
        if (kx_stricmp(key.name, trimmed(name, kBlanks)) == 0) return &key;
    return nullptr;
}

// The n of "key[n]", written as the server looks it up.
std::optional<std::int32_t> index_of(std::string_view name, std::string_view& row) {
    const std::size_t bracket = name.find('[');
    if (bracket == std::string_view::npos || !name.ends_with(']')) return std::nullopt;
    row = name.substr(0, bracket);
    std::int32_t n = -1;
    std::from_chars(name.data() + bracket + 1, name.data() + name.size() - 1, n);
    if (n < 0 || IniFile::indexedKey(row, n) != name) return std::nullopt;
    return n;
}

// A number as people write it, with nothing behind it.
std::optional<long long> number_of(std::string_view text) {
    text = trimmed(text, kBlanks);
    if (text.starts_with('+')) text.remove_prefix(1);
    long long number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

bool is_address(std::string_view text) {
    int parts = 1;
    std::string_view rest = trimmed(text, kBlanks);
    for (;; ++parts) {
        const std::size_t dot = rest.find('.');
        const auto number = number_of(rest.substr(0, dot));
        if (!number || *number < 0 || *number > 255) return false;
        if (dot == std::string_view::npos) break;
        rest.remove_prefix(dot + 1);
    }
    return parts == 4;
}

class Checker {
public:
    explicit Checker(const IniFile& ini) : ini_(ini) {}

    std::vector<ConfigProblem> run() {
        bool section_seen = false;
        for (const IniFile::Line& line : ini_.lines()) {
            ++number_;
            if (line.cut) add("a NUL byte: the line ends there");
            section_seen = section_seen || line.text == header();
            if (line.text.starts_with('[') || line.text.starts_with(kByteOrderMark)) {
                check_header(line.text);
            } else if (!line.text.empty() && !is_remark(line.text)) {
                check_entry(line);
            }
        }
        if (!section_seen)
            problems_.push_back({0, "no line " + quoted(header()) + ": the defaults apply"});
        check_rows();
        check_together();
        std::stable_sort(problems_.begin(), problems_.end(),
                         [](const auto& a, const auto& b) { return a.line < b.line; });
        return std::move(problems_);
    }

private:
    static std::string header() { return '[' + std::string(ServerSettings::kSection) + ']'; }

    void add(std::string text) { problems_.push_back({number_, std::move(text)}); }

    void check_header(std::string_view text) {
        const bool marked = text.starts_with(kByteOrderMark);
        if (marked) text.remove_prefix(kByteOrderMark.size());
        const bool meant = kx_stricmp(trimmed(text, kBlanks), std::string_view(header())) == 0;
        if (marked && meant) {
            add("a byte order mark before " + quoted(header()) + ": the section is not found");
        } else if (meant && text != header()) {
            add("the section is not found: the line must be exactly " + quoted(header()));
        } else if (meant && ++sections_ > 1) {
            add("a second " + quoted(header()) + ": what follows has no effect");
        } else if (inside_ && !text.ends_with(']')) {
            add("this line ends the section " + quoted(header()));
        }
        inside_ = text == header() && sections_ == 1 && !marked;
    }

    void check_entry(const IniFile::Line& line) {
        const auto [name, value] = IniFile::split(line.text);
        std::string_view row;
        const auto index = index_of(name, row);
        const SettingKey* const key = find_key(index ? row : name);
        const bool known = key != nullptr && (key->kind == SettingKind::row) == index.has_value();
        if (line.section != ServerSettings::kSection) {
            if (known)
                add(quoted(name) + " is outside the section " + quoted(header()) +
                    ": it has no effect");
            return;
        }
        if (!known) {
            add_unknown(name, key);
        } else if (const auto [first, is_new] = seen_.try_emplace(name, number_); !is_new) {
            add(quoted(name) + " occurs already in line " + std::to_string(first->second) +
                ", which counts");
        } else if (line.text.find('=') == std::string_view::npos) {
            add(quoted(name) + " has no value");
        } else if (index) {
            check_row_value(*key, *index, value);
        } else {
            check_value(*key, value);
        }
    }

    void add_unknown(std::string_view name, const SettingKey* key) {
        if (key == nullptr) key = find_similar(name.substr(0, name.find('[')));
        std::string text = "unknown key " + quoted(name);
        if (key != nullptr)
            text += ": did you mean " +
                    quoted(key->kind == SettingKind::row ? IniFile::indexedKey(key->name, 0)
                                                         : std::string(key->name)) +
                    "?";
        add(text);
    }

    void check_value(const SettingKey& key, std::string_view value) {
        switch (key.kind) {
            case SettingKind::number: {
                const auto number = number_of(value);
                const std::string name(key.name);
                if (!number) {
                    add(name + " is no number: " + quoted(value) + " counts as " +
                        std::to_string(IniFile::toInt(value)));
                } else if (*number < key.lowest || *number > key.highest) {
                    add(name + " is out of range: " + std::to_string(key.lowest) + " to " +
                        std::to_string(key.highest));
                }
                break;
            }
            case SettingKind::flag:
                if (!IniFile::toBool(value))
                    add(std::string(key.name) + " must be true or false: " + quoted(value) +
                        " is passed over");
                break;
            case SettingKind::address:
                if (!is_address(value))
                    add(std::string(key.name) + " is no IPv4 address: " + quoted(value) +
                        " counts as " +
                        ipToText(key.name == SettingName::adminBind
                                     ? ServerSettings::bindAddress(value)
                                     : textToIp(value)));
                break;
            case SettingKind::networks:
                NetworkList().add_all(value, [&](std::string_view text) {
                    add(std::string(key.name) + " holds what is no network: " + quoted(text) +
                        " is passed over");
                });
                break;
            case SettingKind::text:
            case SettingKind::row:
                break;
        }
    }

    void check_row_value(const SettingKey& key, std::int32_t index, std::string_view value) {
        rows_[key.name][index] = number_;
        if (key.name == SettingName::filter && !parseFilter(value))
            add("a bad filter is passed over: " + quoted(value));
    }

    // A row is read up to its first gap.
    void check_rows() {
        for (const auto& [name, lines] : rows_) {
            std::int32_t next = 0;
            for (const auto& [index, line] : lines) {
                if (index == next) {
                    ++next;
                } else {
                    problems_.push_back({line, quoted(IniFile::indexedKey(name, index)) +
                                                   " is never read: there is no " +
                                                   quoted(IniFile::indexedKey(name, next))});
                }
            }
        }
    }

    void check_together() {
        const auto line_of = [&](std::string_view name) {
            const auto place = seen_.find(name);
            return place != seen_.end() ? place->second : 0;
        };
        const auto value_of = [&](std::string_view name, std::int32_t otherwise) {
            return ini_.getInt(ServerSettings::kSection, name).value_or(otherwise);
        };
        const std::size_t admin = line_of(SettingName::adminName);
        const std::size_t password = line_of(SettingName::adminPass);
        if ((admin == 0) != (password == 0))
            problems_.push_back({std::max(admin, password),
                                 "adminName and adminPass only have an effect together"});

        const ServerSettings defaults;
        if (value_of("port", defaults.port) == value_of("adminPort", defaults.adminPort))
            problems_.push_back({std::max(line_of("port"), line_of("adminPort")),
                                 "port and adminPort are the same"});
        if (value_of("minVersion", defaults.minVersion) >
            value_of("maxVersion", defaults.maxVersion))
            problems_.push_back({std::max(line_of("minVersion"), line_of("maxVersion")),
                                 "minVersion is above maxVersion: nobody can log in"});
    }

    const IniFile& ini_;
    std::vector<ConfigProblem> problems_;
    std::size_t number_ = 0;
    int sections_ = 0;
    bool inside_ = false;
    std::map<std::string_view, std::size_t> seen_;  // key to line
    std::map<std::string_view, std::map<std::int32_t, std::size_t>> rows_;
};

}  // namespace

std::vector<ConfigProblem> findProblems(const IniFile& ini) {
    return Checker(ini).run();
}

}  // namespace vorrim
