#include "platform/registry.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <span>
#include <strings.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "platform/Descriptor.h"

namespace vorrim {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool is_quoted(std::string_view text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

// The key that a line names, or none.
std::optional<std::string_view> key_in(std::string_view line) {
    line = trimmed(line);
    if (line.size() < 2 || line.front() != '[' || line.back() != ']') return std::nullopt;
    return trimmed(line.substr(1, line.size() - 2));
}

struct Value {
    std::string_view name;
    std::string_view text;
};

std::optional<Value> value_in(std::string_view line) {
    line = trimmed(line);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || line.front() == '#' || line.front() == ';') {
        return std::nullopt;
    }
    Value value{trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1))};
    if (is_quoted(value.text)) value.text = value.text.substr(1, value.text.size() - 2);
    return value;
}

std::string line_of(std::string_view name, std::string_view text) {
    const bool as_it_is = trimmed(text) == text && !is_quoted(text);
    const std::string_view quote = as_it_is ? "" : "\"";
    return std::string(name) + '=' + std::string(quote) + std::string(text) + std::string(quote);
}

// Empty when there is no such file; none when there is one that is not regular, too long, or not to
// be read.
std::optional<std::string> content_of(const std::string& file) {
    // Of a pipe nobody may ever write the other end.
    const Descriptor from(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!from.open() && (errno == ENOENT || errno == ENOTDIR)) return "";
    struct stat status {};
    if (!from.open() || ::fstat(from.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string content(Registry::kMostBytes + 1, '\0');
    std::size_t size = 0;
    while (size < content.size()) {
        const ssize_t count = ::read(from.get(), content.data() + size, content.size() - size);
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    if (size > Registry::kMostBytes) return std::nullopt;
    content.resize(size);
    return content;
}

// Written beside and renamed, so that the file is the old or the new one, whole, at any moment.
bool replace_content(const std::string& name, std::string_view content) {
    std::error_code refused;  // shows when the file is opened
    const std::filesystem::path file = std::filesystem::weakly_canonical(name, refused);
    std::filesystem::create_directories(file.parent_path(), refused);
    const std::string beside = file.string() + ".new";
    ::unlink(beside.c_str());  // one that was left behind may be readable for others
    {
        const Descriptor to(
            ::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (!to.open()) return false;
        if (!write_all(to.get(), std::as_bytes(std::span(content))) || ::fsync(to.get()) != 0) {
            ::unlink(beside.c_str());
            return false;
        }
    }
    if (::rename(beside.c_str(), file.c_str()) == 0) return true;
    ::unlink(beside.c_str());
    return false;
}

}  // namespace

Registry::Registry(std::string file) : file_(std::move(file)) {
    const std::optional<std::string> content = content_of(file_);
    known_ = content.has_value();
    std::string_view rest = known_ ? *content : std::string_view();
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        lines_.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
}

std::string Registry::file_of_user() {
    constexpr std::string_view kFile = "/vorrim/registry";
    const auto folder = [](const char* variable) -> std::string {
        const char* const value = std::getenv(variable);
        return value != nullptr && *value == '/' ? value : "";
    };
    if (const std::string own = folder("XDG_CONFIG_HOME"); !own.empty()) {
        return own + std::string(kFile);
    }
    const std::string home = folder("HOME");
    return home.empty() ? "" : home + "/.config" + std::string(kFile);
}

std::optional<std::size_t> Registry::line_of_key(std::string_view key) const {
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        const auto named = key_in(lines_[i]);
        if (named && same_name(*named, key)) return i;
    }
    return std::nullopt;
}

std::optional<std::size_t> Registry::line_of_value(std::string_view key,
                                                   std::string_view name) const {
    bool in_key = false;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        if (const auto named = key_in(lines_[i])) {
            in_key = same_name(*named, key);
        } else if (in_key) {
            const auto value = value_in(lines_[i]);
            if (value && same_name(value->name, name)) return i;
        }
    }
    return std::nullopt;
}

std::optional<std::string> Registry::text(std::string_view key, std::string_view name) const {
    const auto line = line_of_value(key, name);
    if (!line) return std::nullopt;
    return std::string(value_in(lines_[*line])->text);
}

std::optional<std::uint32_t> Registry::number(std::string_view key, std::string_view name) const {
    const std::optional<std::string> digits = text(key, name);
    if (!digits) return std::nullopt;
    std::uint32_t value = 0;
    const char* const end = digits->data() + digits->size();
    const auto [stop, error] = std::from_chars(digits->data(), end, value);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

bool Registry::set_text(std::string_view key, std::string_view name, std::string_view text) {
    using namespace std::string_view_literals;
    if (file_.empty() || !known_ || text.find_first_of("\0\n\r"sv) != std::string_view::npos)
        return false;

    std::vector<std::string> lines = lines_;
    const auto place = [](std::size_t line) { return static_cast<std::ptrdiff_t>(line); };
    if (const auto value = line_of_value(key, name)) {
        lines[*value] = line_of(name, text);
    } else if (const auto head = line_of_key(key)) {
        lines.insert(lines.begin() + place(*head + 1), line_of(name, text));
    } else {
        if (!lines.empty()) lines.emplace_back();
        lines.push_back('[' + std::string(key) + ']');
        lines.push_back(line_of(name, text));
    }

    std::string content;
    for (const std::string& line : lines)
        content.append(line).push_back('\n');
    // What could not be read again would be lost.
    if (content.size() > kMostBytes || !replace_content(file_, content)) return false;
    lines_ = std::move(lines);
    return true;
}

}  // namespace vorrim
