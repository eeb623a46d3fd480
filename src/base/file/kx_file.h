#pragma once
// A stream of bytes: memory, a disk file, a socket, a console. Everything that reads or writes
// bytes does it through one of these, with the primitives of base/file/primitives.h.
//
// Positions and sizes are in bytes. A stream may move fewer bytes than asked; no operation raises
// unless the leaf says so.
//
// Threads: none inside. One stream is used by one thread at a time; its owner sees to that.

#include <cstdint>

#include "base/file/kx_open_mode.h"

namespace vorrim {

class kx_file {
public:
    virtual ~kx_file() = default;

    virtual void flush() {}
    // Both return the bytes moved, 0 at the end or when nothing can be moved now, and -1 when a
    // socket has ended or failed.
    virtual std::int32_t read(void* buffer, std::uint32_t count) = 0;
    virtual std::int32_t write(const void* bytes, std::uint32_t count) = 0;
    // Moves to an absolute position; returns the position reached.
    virtual std::uint32_t seek(std::uint32_t position) = 0;
    [[nodiscard]] virtual std::uint32_t size() const = 0;
    [[nodiscard]] virtual std::uint32_t tell() const = 0;
    // The bytes from `offset` on as memory, or null where the stream cannot give them. `mode` is
    // made of the flags above. The memory belongs to the stream until `unmap`.
    [[nodiscard]] virtual void* map(std::uint32_t offset, std::uint32_t length, std::uint32_t mode);
    virtual bool unmap(void* bytes, std::uint32_t length);

protected:
    kx_file() = default;
    kx_file(const kx_file&) = default;
    kx_file& operator=(const kx_file&) = default;
};

}  // namespace vorrim
