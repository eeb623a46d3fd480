// A record in both forms, and the published list: the frozen record takes exactly what the record
// takes and holds the same bytes, and whatever was read reads the same again.

#include <vector>

#include "base/kx_err.h"
#include "fuzz/Input.h"
#include "meta/FileList.h"
#include "meta/FrozenRecord.h"
#include "meta/Meta.h"

namespace {

using namespace vorrim;

bool equal(std::span<const std::byte> a, std::span<const std::byte> b) {
    return std::ranges::equal(a, b);
}

void copies(const Meta& meta, const kx_memory_file& written) {
    Meta copy;
    copy.copyFrom(meta);
    kx_memory_file same(64);
    fuzz::must(copy.toNetwork(same) && equal(same.written(), written.written()));
    fuzz::must(same.written().size() <= copy.size());
    while (!copy.tags().empty()) {
        const TagText name = copy.tags().front()->getName();
        if (!name || copy.findTag(*name) == nullptr) return;
        const std::string own(*name);
        static_cast<void>(copy.getIntTag(own));
        static_cast<void>(copy.getTextTag(own));
        const std::size_t count = copy.tags().size();
        fuzz::must(!copy.addTag(own, 3));
        copy.removeTag(own);
        fuzz::must(copy.tags().size() + 1 == count);
    }
}

void network_form(const fuzz::Input& input) {
    kx_memory_file one = input.stream();
    kx_memory_file other = input.stream();
    Meta meta;
    const bool taken = meta.fromNetwork(one);
    FrozenRecord frozen = FrozenRecord::from_network(other);
    fuzz::must(taken != frozen.empty());
    if (!taken) return;

    kx_memory_file written(64);
    fuzz::must(meta.toNetwork(written) && equal(written.written(), frozen.bytes()));
    fuzz::must(equal(FrozenRecord::from(meta).bytes(), frozen.bytes()));
    frozen.set_availability(7);
    kx_memory_file own = kx_memory_file::reading(frozen.bytes());
    const FrozenRecord again = FrozenRecord::from_network(own);
    fuzz::must(!again.empty() && equal(again.bytes(), frozen.bytes()));
    fuzz::must(again.view().int_tag("\x15") == 7);
    meta.print();
    copies(meta, written);
}

// What was read from a disk is written, and reads the same again.
template <class Read>
void claim_same_again(const Read& one) {
    kx_memory_file written(64);
    fuzz::must(one.toDisk(written));
    kx_memory_file own = kx_memory_file::reading(written.written());
    Read again;
    kx_memory_file rewritten(64);
    fuzz::must(again.fromDisk(own) && again.toDisk(rewritten));
    fuzz::must(equal(written.written(), rewritten.written()));
}

void disk_form(const fuzz::Input& input) {
    kx_memory_file stream = input.stream();
    Meta meta;
    if (meta.fromDisk(stream)) claim_same_again(meta);
}

// A list on disk behind its marker.
void list_on_disk(const fuzz::Input& input) {
    kx_memory_file stream(64);
    write_8(stream, kListMarker);
    write_bytes(stream, input.rest());
    stream.seek(0);
    FileList files;
    if (!files.fromDisk(stream)) return;
    claim_same_again(files);
    FileList copy;
    copy.copyFrom(files);
    copy.setOwner(ClientId(1), 2);
    std::vector<FileHash> hashes;
    files.forEach([&hashes](const Meta& record) { hashes.push_back(record.hash()); });
    for (const FileHash& hash : hashes) {
        const FileList::Record found = copy.findByHash(hash);
        fuzz::must(found && found->id() == 1 && found->port() == 2 && copy.addUnique(found));
    }
    fuzz::must(copy.count() == files.count());
}

void list(const fuzz::Input& input) {
    kx_memory_file one = input.stream();
    kx_memory_file other = input.stream();
    FileList files;
    const bool taken = files.fromNetwork(one);
    const auto frozen = read_frozen_list(other);
    fuzz::must(taken == frozen.has_value());
    if (!taken) return;
    fuzz::must(files.count() == frozen->size());
    kx_memory_file written(64);
    fuzz::must(files.toNetwork(written) && written.size() <= files.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    fuzz::Input input(data, size);
    const std::uint8_t form = input.u8();
    try {
        if (form % 3 == 0) network_form(input);
        if (form % 3 == 1) disk_form(input);
        if (form % 3 == 2) list(input);
        if (form % 3 == 2) list_on_disk(input);
    } catch (const kx_err&) {
        // Bytes that end early: nothing was read.
    }
    return 0;
}
