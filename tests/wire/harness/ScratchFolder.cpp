#include "tests/wire/harness/ScratchFolder.h"

#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <system_error>

#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

ScratchFolder::ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "vorrim-wire-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw WireFailure("no scratch folder at " + name);
    path_ = std::filesystem::canonical(name);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;  // what cannot be removed is left to the system's own tidying
    std::filesystem::remove_all(path_, ignored);
}

std::string ScratchFolder::read(std::string_view name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void ScratchFolder::write(std::string_view name, std::string_view content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
}

bool ScratchFolder::has(std::string_view name) const {
    return std::filesystem::exists(path_ / name);
}

}  // namespace vorrim::wire
