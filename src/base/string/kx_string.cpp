#include "base/string/kx_string.h"

namespace vorrim {

kx_string& kx_string::operator=(const char* text) {
    assign(text);
    return *this;
}

kx_string& kx_string::operator=(std::string_view text) {
    assign(text);
    return *this;
}

void kx_string::assign(const char* text) {
    if (text == nullptr) {
        clear();
    } else {
        assign(std::string_view(text));
    }
}

void kx_string::assign(std::string_view text) {
    // A copy first: the text may be this one's own.
    text_ = std::string(text.substr(0, text.find('\0')));
}

}  // namespace vorrim
