#include "client/index/RowListTable.h"

namespace vorrim {

bool RowListTable::append(std::uint32_t key, std::uint32_t row) {
    if (RowList* const list = slot(key)) {
        list->append(row);
        return false;
    }
    RowList& list = lists_.insert(hash_of(key));
    list = RowList(key);
    list.append(row);
    return true;
}

bool RowListTable::erase(std::uint32_t key, std::uint32_t row) noexcept {
    RowList* const list = slot(key);
    if (list->size() > 1) {
        list->erase(row);
        return false;
    }
    lists_.erase(*list);
    return true;
}

}  // namespace vorrim
