// The server list file: what was loaded is saved as bytes that load the same. An address that only
// a tag has told stands in its place then, and the next load makes the tags agree with it: from
// there on nothing changes any more.

#include "meta/ServerList.h"

#include "base/kx_err.h"
#include "fuzz/Input.h"

namespace {

using namespace vorrim;

kx_memory_file saved(const ServerList& list) {
    kx_memory_file written(64);
    fuzz::must(list.toDisk(written));
    return written;
}

kx_memory_file saved_again(const kx_memory_file& written, std::size_t count) {
    kx_memory_file own = kx_memory_file::reading(written.written());
    ServerList list;
    fuzz::must(list.fromDisk(own) && list.count() == count);
    kx_memory_file rewritten = saved(list);
    fuzz::must(list.findOrAdd(1, 1) != nullptr);
    return rewritten;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    kx_memory_file stream = fuzz::Input(data, size).stream();
    ServerList list;
    try {
        if (!list.fromDisk(stream)) return 0;
    } catch (const kx_err&) {
        return 0;  // a file that ends within a record is refused as a whole
    }
    const kx_memory_file second = saved_again(saved(list), list.count());
    const kx_memory_file third = saved_again(second, list.count());
    fuzz::must(std::ranges::equal(second.written(), third.written()));
    return 0;
}
