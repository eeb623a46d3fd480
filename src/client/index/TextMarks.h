#pragma once
// What a segment keeps of a record's texts, so that searches pass over the record: made outside the
// index lock, put down under it.
#include "client/index/GramFilter.h"
#include "client/index/TextSignature.h"
#include "meta/RecordView.h"

namespace vorrim {

struct TextMarks {
    TextMarks() noexcept = default;
    explicit TextMarks(RecordView record) noexcept
        : signature(signature_of(record)), runs(record) {}

    TextSignature signature;
    GramRuns runs;
};

}  // namespace vorrim
