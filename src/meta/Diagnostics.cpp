#include "meta/Diagnostics.h"

#include "base/Output.h"

namespace vorrim::diagnostics {

void unknown_tag_type(std::uint8_t type) {
    current_output().printError("ERROR: unknown type MetaTag::makeTag() %d\n", int{type});
}

void unreadable_tag() {
    current_output().printError("error in tag from bytes\n");
}

void unreadable_record() {
    current_output().printVerbose("ERROR: Meta::fromNetwork()\n");
}

void unreadable_list_item(std::int32_t count, std::int32_t index) {
    current_output().printVerbose("meta #:%d, n=%d\n", count, index);
}

void unreadable_file_list() {
    current_output().printVerbose("ERROR: FileList::fromNetwork()\n");
}

}  // namespace vorrim::diagnostics
