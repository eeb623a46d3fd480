#include "base/file/kx_file.h"

namespace vorrim {

void* kx_file::map(std::uint32_t /*offset*/, std::uint32_t /*length*/, std::uint32_t /*mode*/) {
    return nullptr;
}

bool kx_file::unmap(void* /*bytes*/, std::uint32_t /*length*/) {
    return false;
}

}  // namespace vorrim
