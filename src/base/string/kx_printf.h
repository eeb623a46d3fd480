#pragma once
// The library's own formatter, onto any stream.
//
//     %c                one byte            %s   a text; null prints nothing
//     %d %i             signed decimal      %S   a kx_string; null prints nothing
//     %u %o             decimal, octal      %I   an object that prints itself; null prints "NULL"
//     %x %p             hexadecimal         %%   a percent sign
//
// Flags, width and precision between the percent sign and the letter are accepted and ignored; any
// other letter prints nothing and takes no argument; a percent sign at the end prints nothing.
//
// The arguments carry their types. A format is checked against them when it is compiled; one that
// is only known later prints nothing for an argument of the wrong kind, or for one that is missing.
//
// Threads: none inside, as the stream. Nothing raises beyond what the stream does.

#include <array>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/file/kx_file.h"
#include "base/string/kx_string.h"

namespace vorrim {

// What prints itself under %I.
class kx_printable {
public:
    virtual void print(kx_file& out) const = 0;

protected:
    kx_printable() = default;
    ~kx_printable() = default;
    kx_printable(const kx_printable&) = default;
    kx_printable& operator=(const kx_printable&) = default;
};

enum class kx_arg_kind : std::uint8_t { none, integer, text, string, object };

// One argument. It refers to texts and objects, which must outlive the call.
class kx_arg final {
public:
    template <std::integral T>
    kx_arg(T value) noexcept
        : kind_(kx_arg_kind::integer),
          negative_(value < T{}),
          // Of a negative 32-bit value the 32 bits, as an unsigned conversion takes them.
          bits_(sizeof(T) <= sizeof(std::uint32_t) ? static_cast<std::uint32_t>(value)
                                                   : static_cast<std::uint64_t>(value)),
          magnitude_(value < T{} ? 0 - static_cast<std::uint64_t>(value)
                                 : static_cast<std::uint64_t>(value)) {}
    kx_arg(const char* text) noexcept
        : kind_(kx_arg_kind::text), text_(text != nullptr ? text : "") {}
    kx_arg(std::string_view text) noexcept : kind_(kx_arg_kind::text), text_(text) {}
    kx_arg(const std::string& text) noexcept : kind_(kx_arg_kind::text), text_(text) {}
    kx_arg(const kx_string& text) noexcept : kind_(kx_arg_kind::string), text_(text.view()) {}
    kx_arg(const kx_printable* object) noexcept : kind_(kx_arg_kind::object), object_(object) {}

    [[nodiscard]] kx_arg_kind kind() const noexcept { return kind_; }
    [[nodiscard]] bool negative() const noexcept { return negative_; }
    [[nodiscard]] std::uint64_t bits() const noexcept { return bits_; }
    [[nodiscard]] std::uint64_t magnitude() const noexcept { return magnitude_; }
    [[nodiscard]] std::string_view text() const noexcept { return text_; }
    [[nodiscard]] const kx_printable* object() const noexcept { return object_; }

private:
    kx_arg_kind kind_;
    bool negative_ = false;
    std::uint64_t bits_ = 0;
    std::uint64_t magnitude_ = 0;
    std::string_view text_;
    const kx_printable* object_ = nullptr;
};

// The kind that a conversion takes; `none` for a letter outside the table.
[[nodiscard]] constexpr kx_arg_kind kx_conversion_kind(char letter) noexcept {
    switch (letter) {
        case 'c':
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'p':
            return kx_arg_kind::integer;
        case 's':
            return kx_arg_kind::text;
        case 'S':
            return kx_arg_kind::string;
        case 'I':
            return kx_arg_kind::object;
        default:
            return kx_arg_kind::none;
    }
}

// Where the conversion that begins at the percent sign `at` has its letter or second percent sign;
// the size of the format when it has none.
[[nodiscard]] constexpr std::size_t kx_conversion_letter(std::string_view format,
                                                         std::size_t at) noexcept {
    for (++at; at < format.size(); ++at) {
        const char c = format[at];
        if (c == '%' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) break;
    }
    return at;
}

template <class T>
[[nodiscard]] consteval kx_arg_kind kx_kind_of() noexcept {
    using Plain = std::remove_cvref_t<T>;
    if constexpr (std::integral<Plain>) return kx_arg_kind::integer;
    if constexpr (std::same_as<Plain, kx_string>) return kx_arg_kind::string;
    if constexpr (std::convertible_to<T, const kx_printable*>) return kx_arg_kind::object;
    if constexpr (std::convertible_to<T, std::string_view>) return kx_arg_kind::text;
    return kx_arg_kind::none;
}

// A format that fits its arguments; one that does not, does not compile.
template <class... Args>
class kx_format_text final {
public:
    consteval kx_format_text(const char* format) : text_(format) {
        constexpr std::array<kx_arg_kind, sizeof...(Args) + 1> given{kx_kind_of<Args>()...,
                                                                     kx_arg_kind::none};
        std::size_t next = 0;
        for (std::size_t at = 0; at < text_.size(); ++at) {
            if (text_[at] != '%') continue;
            at = kx_conversion_letter(text_, at);
            if (at == text_.size()) break;
            const kx_arg_kind wanted = kx_conversion_kind(text_[at]);
            if (wanted == kx_arg_kind::none) continue;
            if (given[next] != wanted) format_does_not_fit_its_arguments();
            ++next;
        }
        if (next != sizeof...(Args)) format_does_not_fit_its_arguments();
    }
    [[nodiscard]] constexpr std::string_view text() const noexcept { return text_; }

private:
    // Not constexpr, so that reaching it stops the compiler.
    static void format_does_not_fit_its_arguments() {}

    std::string_view text_;
};

// Returns the bytes written, as the stream's position tells them.
std::uint32_t kx_vprintf(kx_file& out, std::string_view format, std::span<const kx_arg> arguments);
// Into a buffer, cut to what fits before a terminating NUL. Returns the buffer's text.
const char* kx_vsnprintf(std::span<char> buffer, std::string_view format,
                         std::span<const kx_arg> arguments);
// Into a text of any length.
void kx_vformat(kx_string& out, std::string_view format, std::span<const kx_arg> arguments);

// The same with the arguments themselves.
template <class... Args>
std::uint32_t kx_printf(kx_file& out, kx_format_text<std::type_identity_t<Args>...> format,
                        const Args&... args) {
    const std::array<kx_arg, sizeof...(Args)> arguments{kx_arg(args)...};
    return kx_vprintf(out, format.text(), arguments);
}

template <class... Args>
const char* kx_snprintf(std::span<char> buffer,
                        kx_format_text<std::type_identity_t<Args>...> format, const Args&... args) {
    const std::array<kx_arg, sizeof...(Args)> arguments{kx_arg(args)...};
    return kx_vsnprintf(buffer, format.text(), arguments);
}

template <class... Args>
void kx_format(kx_string& out, kx_format_text<std::type_identity_t<Args>...> format,
               const Args&... args) {
    const std::array<kx_arg, sizeof...(Args)> arguments{kx_arg(args)...};
    kx_vformat(out, format.text(), arguments);
}

}  // namespace vorrim
