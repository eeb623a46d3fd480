#include "FileTypes.h"

#include <algorithm>
#include <array>

#include "Text.h"

namespace vorrim::cli {

namespace {

constexpr std::size_t kLongestExtension = 10;  // what is longer is part of a sentence

struct Row {
    std::string_view format;
    std::string_view type;
};

// Sorted by format, so that a look-up is a binary search; checked below.
constexpr std::array kTypes = std::to_array<Row>({
    {"7z", "Archive"},  {"a", "Pro"},       {"aac", "Audio"},   {"aiff", "Audio"},
    {"apk", "Pro"},     {"avi", "Video"},   {"bat", "Pro"},     {"bin", "Pro"},
    {"bmp", "Image"},   {"bz2", "Archive"}, {"c", "Doc"},       {"cab", "Archive"},
    {"cc", "Doc"},      {"cfg", "Doc"},     {"conf", "Doc"},    {"cpp", "Doc"},
    {"css", "Doc"},     {"csv", "Doc"},     {"deb", "Archive"}, {"dll", "Pro"},
    {"dmg", "Archive"}, {"doc", "Doc"},     {"docx", "Doc"},    {"epub", "Doc"},
    {"exe", "Pro"},     {"flac", "Audio"},  {"flv", "Video"},   {"gif", "Image"},
    {"gz", "Archive"},  {"h", "Doc"},       {"hpp", "Doc"},     {"htm", "Doc"},
    {"html", "Doc"},    {"ico", "Image"},   {"img", "Archive"}, {"ini", "Doc"},
    {"iso", "Archive"}, {"jar", "Archive"}, {"jpeg", "Image"},  {"jpg", "Image"},
    {"js", "Doc"},      {"json", "Doc"},    {"ko", "Pro"},      {"log", "Doc"},
    {"m4a", "Audio"},   {"m4v", "Video"},   {"md", "Doc"},      {"mid", "Audio"},
    {"midi", "Audio"},  {"mkv", "Video"},   {"mov", "Video"},   {"mp3", "Audio"},
    {"mp4", "Video"},   {"mpeg", "Video"},  {"mpg", "Video"},   {"msi", "Pro"},
    {"o", "Pro"},       {"odp", "Doc"},     {"ods", "Doc"},     {"odt", "Doc"},
    {"oga", "Audio"},   {"ogg", "Audio"},   {"ogv", "Video"},   {"opus", "Audio"},
    {"pdf", "Doc"},     {"pl", "Doc"},      {"pm", "Doc"},      {"png", "Image"},
    {"ppt", "Doc"},     {"pptx", "Doc"},    {"ps", "Doc"},      {"py", "Doc"},
    {"pyc", "Pro"},     {"rar", "Archive"}, {"rpm", "Archive"}, {"rst", "Doc"},
    {"rtf", "Doc"},     {"sh", "Doc"},      {"so", "Pro"},      {"svg", "Image"},
    {"tar", "Archive"}, {"tex", "Doc"},     {"tgz", "Archive"}, {"tif", "Image"},
    {"tiff", "Image"},  {"txt", "Doc"},     {"wav", "Audio"},   {"webm", "Video"},
    {"webp", "Image"},  {"wma", "Audio"},   {"wmv", "Video"},   {"xls", "Doc"},
    {"xlsx", "Doc"},    {"xml", "Doc"},     {"xpm", "Image"},   {"xz", "Archive"},
    {"yaml", "Doc"},    {"yml", "Doc"},     {"zip", "Archive"}, {"zst", "Archive"},
});
static_assert(std::is_sorted(kTypes.begin(), kTypes.end(),
                             [](const Row& a, const Row& b) { return a.format < b.format; }));

// What stands behind the last dot; empty for a name without one or with only a leading one.
std::string_view extension(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return name.substr(dot + 1);
}

bool is_number(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

FileKind kind_of(std::string_view name) {
    const std::string_view whole = extension(name);
    std::string_view rest = name;
    std::string_view last = whole;
    while (is_number(last)) {
        rest.remove_suffix(last.size() + 1);
        last = extension(rest);
    }
    // Only a library's numbers are versions; in "crontab.5" the number is all there is.
    if (last != "so") last = whole;
    if (last.size() > kLongestExtension || last.find(' ') != std::string_view::npos) return {};

    FileKind kind{lowered(last), {}};
    const auto row = std::lower_bound(
        kTypes.begin(), kTypes.end(), kind.format,
        [](const Row& known, const std::string& wanted) { return known.format < wanted; });
    if (row != kTypes.end() && row->format == kind.format) kind.type = row->type;
    return kind;
}

}  // namespace vorrim::cli
