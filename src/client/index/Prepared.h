#pragma once
// A record on its way into the index, with all that can be made of it outside the lock.
#include <cstdint>

#include "client/index/TextSignature.h"
#include "client/index/keyword_hash.h"
#include "meta/FrozenRecord.h"

namespace vorrim {

struct Prepared {
    FrozenRecord record;
    TextSignature signature;
    KeywordHashes words;
    std::uint32_t digest = 0;  // of the file hash, see HashToEntry
    bool known = false;        // had an entry when last looked: the rest was not worth making
};

}  // namespace vorrim
