#pragma once
// The lines that decoding a record prints, in one place because two decoders print them: Meta and
// FrozenRecord say the same about the same bytes.

#include <cstdint>

namespace vorrim::diagnostics {

// A tag's type byte is none of the three, and so there is no tag: a line of printError each.
void unknown_tag_type(std::uint8_t type);
void unreadable_tag();

// A tag of a record in network form cannot be decoded: a line of printVerbose.
void unreadable_record();

// Record `index` of an announced `count` cannot be decoded: the line of printVerbose that comes
// before the list's own.
void unreadable_list_item(std::int32_t count, std::int32_t index);

// The network form of a FileList cannot be decoded: a line of printVerbose.
void unreadable_file_list();

}  // namespace vorrim::diagnostics
