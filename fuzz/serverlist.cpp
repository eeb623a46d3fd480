// The server list file: what was loaded is saved as bytes that load the same.

#include "meta/ServerList.h"

#include "base/kx_err.h"
#include "fuzz/Input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    static const fuzz::Quiet quiet;
    kx_memory_file stream = fuzz::Input(data, size).stream();
    try {
        ServerList list;
        if (!list.fromDisk(stream)) return 0;
        kx_memory_file written(64);
        fuzz::must(list.toDisk(written));
        kx_memory_file own = kx_memory_file::reading(written.written());
        ServerList again;
        fuzz::must(again.fromDisk(own) && again.count() == list.count());
        kx_memory_file rewritten(64);
        fuzz::must(again.toDisk(rewritten));
        fuzz::must(std::ranges::equal(written.written(), rewritten.written()));
        fuzz::must(again.findOrAdd(1, 1) != nullptr);
    } catch (const kx_err&) {
        // A file that ends within a record is refused as a whole.
    }
    return 0;
}
