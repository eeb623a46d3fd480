#pragma once
// A record kept for a long time: its canonical network form in one block of memory.
//
//     FrozenRecord ──► [ length u32 | availability u32 | the bytes that RecordView describes ]
//                                          └─ where the number of sources stands; 0: not known yet
//
// What the index keeps of a file and the client table of a client. A reply copies the bytes as they
// are; identifier, port and availability are patched in place.
//
// Ownership   One pointer, moved and never copied. Empty when nothing was read or after a move:
//             then only the empty test, assignment and destruction are allowed.
// Threads     None inside: readers may share a record that nobody patches.
// Limits      A record is no longer than the bytes that it was read from.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "base/memory/PageHeap.h"
#include "meta/ClientId.h"
#include "meta/RecordView.h"

namespace vorrim {

class Meta;

// Where a kept record lies. Copied freely, and good for as long as the record is not given away.
class RecordPlace final {
public:
    RecordPlace() noexcept = default;

    [[nodiscard]] RecordView view() const noexcept { return RecordView({bytes(), block_->length}); }
    // Fetches the beginning of the record in advance.
    void prefetch() const noexcept {
        constexpr std::size_t kLine = 64;
        __builtin_prefetch(bytes());
        __builtin_prefetch(bytes() + kLine);
        __builtin_prefetch(bytes() + 2 * kLine - 1);
    }

private:
    friend class FrozenRecord;

    struct Block {
        std::uint32_t length;        // of the record's bytes, which follow
        std::uint32_t availability;  // offset of the value in those bytes
    };

    explicit RecordPlace(const Block* block) noexcept : block_(block) {}
    [[nodiscard]] const std::byte* bytes() const noexcept {
        return reinterpret_cast<const std::byte*>(block_ + 1);
    }

    const Block* block_ = nullptr;
};

class FrozenRecord final {
public:
    FrozenRecord() noexcept = default;

    // Reads one record. Accepts exactly what Meta::fromNetwork accepts and prints what it prints,
    // without building a Meta. On failure the result is empty and the stream's position is of no
    // meaning. Raises kx_err when memory runs out, never because of the bytes.
    [[nodiscard]] static FrozenRecord from_network(kx_memory_file& from);

    // Empty when the Meta cannot be encoded (a name or text too long for the wire).
    [[nodiscard]] static FrozenRecord from(const Meta& meta);

    [[nodiscard]] bool empty() const noexcept { return block_ == nullptr; }

    [[nodiscard]] RecordView view() const noexcept { return RecordView(bytes()); }
    [[nodiscard]] RecordPlace place() const noexcept { return RecordPlace(block_.get()); }
    [[nodiscard]] std::span<const std::byte> bytes() const noexcept {
        return {data(), block_->length};
    }

    void set_owner(ClientId id, std::uint16_t port) noexcept {
        store_32(data() + RecordLayout::id, id.value());
        store_16(data() + RecordLayout::port, port);
    }

    // Sets the value of the first tag named Availability. A tag of that name with another type
    // becomes an integer tag where it stands; without one, an integer tag is appended. Both move
    // the record to a new block, once; every later call is one store. Raises kx_err when memory
    // runs out; the record is then unchanged.
    void set_availability(std::uint32_t sources) {
        if (block_->availability == 0) make_availability();
        store_32(data() + block_->availability, sources);
    }

private:
    using Block = RecordPlace::Block;

    explicit FrozenRecord(std::uint32_t length);

    [[nodiscard]] std::byte* data() const noexcept {
        return reinterpret_cast<std::byte*>(block_.get() + 1);
    }
    void make_availability();

    std::unique_ptr<Block, PageHeap::Free> block_;
};

static_assert(sizeof(FrozenRecord) == sizeof(void*));

// Reads a published list straight into frozen records: accepts what FileList::fromNetwork accepts
// and prints what it prints. Nothing when the list cannot be read. Memory grows with the records
// that came, whatever count was announced.
[[nodiscard]] std::optional<std::vector<FrozenRecord>> read_frozen_list(kx_memory_file& from);

}  // namespace vorrim
