#pragma once
// Raw memory that raises "out of memory" instead of returning nothing.
//
// Threads: any.

#include <cstddef>

namespace vorrim {

// The caller frees with kx_free.
[[nodiscard]] void* kx_malloc(std::size_t size);
// Null behaves as kx_malloc. On failure the old memory stays as it was. Size 0 frees and gives
// null.
[[nodiscard]] void* kx_realloc(void* memory, std::size_t size);
// Null is allowed.
void kx_free(void* memory) noexcept;

// For std::unique_ptr.
struct kx_free_deleter final {
    void operator()(void* memory) const noexcept { kx_free(memory); }
};

}  // namespace vorrim
