// A settings file: read, asked about, checked, and its filters evaluated and printed.

#include <array>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "app/ConfigCheck.h"
#include "app/FilterExpressions.h"
#include "app/IniFile.h"
#include "app/ServerSettings.h"
#include "fuzz/Input.h"

namespace {

using namespace vorrim;

// A file that only memory holds, under a name that can be opened.
std::string as_file(std::string_view text) {
    static const int file = ::memfd_create("settings", 0);
    fuzz::must(file >= 0 && ::ftruncate(file, 0) == 0);
    fuzz::must(::pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return "/proc/self/fd/" + std::to_string(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet quiet;
    static constexpr std::array<std::byte, 26> kNoTags{};
    const auto no_address = [] { return std::uint32_t{0}; };
    const std::string_view text = fuzz::as_text(fuzz::Input(data, size).rest());

    IniFile ini;
    ini.assign(std::string(text));
    for (const IniFile::Line& line : ini.lines()) {
        const IniFile::Entry entry = IniFile::split(line.text);
        fuzz::must(entry.key.size() + entry.value.size() <= 2 * line.text.size());
        // The first line of a key counts, and every line that is seen has one.
        if (!line.section.empty() && !line.text.empty())
            fuzz::must(ini.getString(line.section, entry.key).has_value());
    }
    static_cast<void>(findProblems(ini));

    const std::string name = as_file(text);
    ServerSettings settings;
    for (const Search& filter : settings.load(name, quiet, no_address).filters) {
        static_cast<void>(filter.matches(RecordView(kNoTags)));
        std::string printed;
        filter.print(printed);
    }
    fuzz::must(settings.tableSize >= 1);
    static_cast<void>(checkConfig(name, MissingFile::is_a_problem, no_address));
    return 0;
}
