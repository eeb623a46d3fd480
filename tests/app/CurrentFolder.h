#pragma once
// A scratch folder that is the current one as long as it exists.

#include <filesystem>

#include "tests/ScratchFolder.h"

namespace vorrim {

class CurrentFolder final : public ScratchFolder {
public:
    CurrentFolder() { std::filesystem::current_path(path()); }
    ~CurrentFolder() { std::filesystem::current_path(before_); }

private:
    const std::filesystem::path before_ = std::filesystem::current_path();
};

}  // namespace vorrim
