#pragma once
// A record on its way into the index, with all that can be made of it outside the lock.
#include <cstdint>

#include "client/index/EntrySlab.h"
#include "client/index/TextMarks.h"
#include "client/index/keyword_hash.h"
#include "meta/FrozenRecord.h"

namespace vorrim {

struct Prepared {
    Prepared() noexcept {}  // leaves as it is what has yet to be made

    FrozenRecord record;
    std::uint32_t digest = 0;  // of the file hash, see HashToEntry
    // The entry that the hash seemed to have when last looked (EntrySlab::kNone: none): then the
    // rest was not worth making.
    std::uint32_t likely = EntrySlab::kNone;
    KeywordHashes words;
    TextMarks marks;

    [[nodiscard]] bool known() const noexcept { return likely != EntrySlab::kNone; }
};

}  // namespace vorrim
