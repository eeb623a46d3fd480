#pragma once
// What kind of thing a file is, told from its name.

#include <string>
#include <string_view>

namespace vorrim::cli {

struct FileKind {
    std::string format;     // the extension, lower case; empty when there is none worth telling
    std::string_view type;  // Audio, Video, Image, Doc, Pro or Archive; empty when not known
};

// `name` is a file name without folders. The version digits of a library do not hide its kind:
// libfoo.so.1.2 has the format so. A name that only begins with a dot has no extension.
[[nodiscard]] FileKind kind_of(std::string_view name);

}  // namespace vorrim::cli
