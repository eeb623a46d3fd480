#include "base/memory/malloc4.h"

#include <cstdlib>

#include "base/kx_err.h"

namespace vorrim {

void* kx_malloc(std::size_t size) {
    void* memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) kx_error("out of memory");
    return memory;
}

void* kx_realloc(void* memory, std::size_t size) {
    if (memory == nullptr) return kx_malloc(size);
    if (size == 0) {
        std::free(memory);
        return nullptr;
    }
    void* moved = std::realloc(memory, size);
    if (moved == nullptr) kx_error("out of memory");
    return moved;
}

void kx_free(void* memory) noexcept {
    std::free(memory);
}

}  // namespace vorrim
