#pragma once
// The file "vorrim.log": the diagnostics of the foundation library.
//
// Threads: any.

#include <cstdint>
#include <memory>

#include "base/Annotations.h"
#include "base/file/kx_file.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class DebugLog final : public kx_file {
public:
    static constexpr const char* kFile = "vorrim.log";

    // Made when it is missing, and written from its first byte without being emptied. Null when it
    // cannot be opened.
    [[nodiscard]] static std::unique_ptr<DebugLog> open();
    explicit DebugLog(std::unique_ptr<kx_file> file);
    // The file of that name is another one now; what it holds stays. False, and the old one is
    // written on, when it cannot be opened.
    [[nodiscard]] bool reopen();

    std::int32_t read(void* buffer, std::uint32_t count) override;
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    std::uint32_t seek(std::uint32_t position) override;
    [[nodiscard]] std::uint32_t size() const override;
    [[nodiscard]] std::uint32_t tell() const override;

private:
    mutable kx_critical_section lock_;
    std::unique_ptr<kx_file> file_ GUARDED_BY(lock_);
};

}  // namespace vorrim
