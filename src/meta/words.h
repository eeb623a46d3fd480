#pragma once
// What a word of a text is: files are listed by their words, and whoever searches must cut what it
// asks for in the same way.

#include <cstddef>
#include <string_view>

namespace vorrim {

inline constexpr std::string_view kWordSeparators = " ,_-.(){}[]!?<>:\\/\t\n";
inline constexpr std::size_t kLongestWord = 255;  // a longer run goes on as the next word

}  // namespace vorrim
