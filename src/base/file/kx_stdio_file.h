#pragma once
// Standard input and standard output as a stream. It has no size and no position.
//
// Threads: the C library's locks make each read and each write whole.

#include "base/file/kx_file.h"

namespace vorrim {

class kx_stdio_file final : public kx_file {
public:
    void flush() override;
    std::int32_t read(void* buffer, std::uint32_t count) override;
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    std::uint32_t seek(std::uint32_t position) override;
    [[nodiscard]] std::uint32_t size() const override { return 0; }
    [[nodiscard]] std::uint32_t tell() const override { return 0; }
};

}  // namespace vorrim
