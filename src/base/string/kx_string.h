#pragma once
// A text that owns its bytes, or no text at all: null and the empty text are different values.
// A text ends at its first NUL byte, whatever it was made from.
//
// Threads: none inside.

#include <optional>
#include <string>
#include <string_view>

namespace vorrim {

class kx_string final {
public:
    kx_string() noexcept = default;
    // Null gives null.
    explicit kx_string(const char* text) { assign(text); }
    explicit kx_string(std::string_view text) { assign(text); }
    explicit kx_string(const std::string& text) : kx_string(std::string_view(text)) {}

    kx_string& operator=(const char* text);
    kx_string& operator=(std::string_view text);

    void assign(const char* text);
    void assign(std::string_view text);
    // To null.
    void clear() noexcept { text_.reset(); }

    [[nodiscard]] bool null() const noexcept { return !text_.has_value(); }
    // Null or of no bytes.
    [[nodiscard]] bool empty() const noexcept { return view().empty(); }
    // Of null it is empty.
    [[nodiscard]] std::string_view view() const noexcept {
        return text_ ? std::string_view(*text_) : std::string_view();
    }
    // With its terminator; never a null pointer.
    [[nodiscard]] const char* c_str() const noexcept { return text_ ? text_->c_str() : ""; }
    // With its terminator; a null pointer for null, as kx_strcmp wants it.
    [[nodiscard]] const char* get() const noexcept { return text_ ? text_->c_str() : nullptr; }

    friend bool operator==(const kx_string&, const kx_string&) = default;

private:
    std::optional<std::string> text_;
};

}  // namespace vorrim
