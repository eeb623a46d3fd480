#include "client/Filter.h"

namespace vorrim {

bool Filter::matches(RecordView record) const {
    return search_.matches(record);
}

void Filter::print(std::string& buffer) const {
    search_.print(buffer);
}

}  // namespace vorrim
