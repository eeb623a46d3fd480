#include "app/IniFile.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/string/strings.h"

namespace vorrim {

bool IniFile::open(const std::string& path) {
    close();
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                               &std::fclose);
    if (!file) return false;
    std::string text;
    std::array<char, 4096> piece;
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get()))
        text.append(piece.data(), count);
    // A folder opens well and only fails when it is read.
    if (std::ferror(file.get()) != 0) return false;
    assign(std::move(text));
    return true;
}

void IniFile::assign(std::string text) {
    close();
    text_ = std::move(text);
    Section* open_section = nullptr;
    std::string_view open_name;
    std::string_view rest = text_;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (end != std::string_view::npos && line.ends_with('\r')) line.remove_suffix(1);
        addLine(line, open_section, open_name);
    }
}

void IniFile::close() noexcept {
    sections_.clear();
    lines_.clear();
    text_.clear();
}

void IniFile::addLine(std::string_view text, Section*& open_section, std::string_view& open_name) {
    Line line{text.substr(0, text.find('\0')), {}, text.find('\0') != std::string_view::npos};
    if (line.text.starts_with('[')) {
        open_section = nullptr;
        open_name = {};
        if (line.text.size() > 2 && line.text.ends_with(']')) {
            const std::string_view name = line.text.substr(1, line.text.size() - 2);
            // A second header of the same name opens nothing: lookups stop at the first.
            const auto [place, is_new] = sections_.try_emplace(name);
            if (is_new) {
                open_section = &place->second;
                open_name = name;
            }
        }
    } else if (open_section != nullptr) {
        line.section = open_name;
        if (!line.text.empty()) {
            const Entry entry = split(line.text);
            open_section->try_emplace(entry.key, entry.value);
        }
    }
    lines_.push_back(line);
}

IniFile::Entry IniFile::split(std::string_view line) noexcept {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return {line, line};
    return {line.substr(0, equals), line.substr(equals + 1)};
}

std::optional<bool> IniFile::toBool(std::string_view value) {
    std::string folded(value);
    kx_strlwr(folded);
    if (folded == "true") return true;
    if (folded == "false") return false;
    return std::nullopt;
}

std::int32_t IniFile::toInt(std::string_view value) {
    return static_cast<std::int32_t>(std::strtoll(std::string(value).c_str(), nullptr, 10));
}

std::string IniFile::indexedKey(std::string_view key, std::int32_t n) {
    return std::string(key) + '[' + std::to_string(n) + ']';
}

std::optional<std::string_view> IniFile::getString(std::string_view section,
                                                   std::string_view key) const {
    const auto place = sections_.find(section);
    if (place == sections_.end()) return std::nullopt;
    const auto entry = place->second.find(key);
    if (entry == place->second.end()) return std::nullopt;
    return entry->second;
}

std::optional<std::int32_t> IniFile::getInt(std::string_view section, std::string_view key) const {
    const auto value = getString(section, key);
    return value ? std::optional(toInt(*value)) : std::nullopt;
}

std::optional<bool> IniFile::getBool(std::string_view section, std::string_view key) const {
    const auto value = getString(section, key);
    return value ? toBool(*value) : std::nullopt;
}

std::optional<std::string_view> IniFile::getIndexed(std::string_view section, std::string_view key,
                                                    std::int32_t n) const {
    return getString(section, indexedKey(key, n));
}

}  // namespace vorrim
