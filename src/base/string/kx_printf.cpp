#include "base/string/kx_printf.h"

#include <algorithm>

#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"
#include "base/string/strings.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kFormatGrowth = 512;

void write_text(kx_file& out, std::string_view text) {
    out.write(text.data(), static_cast<std::uint32_t>(text.size()));
}

// Digits come out from the least significant end and leave in one write.
void write_number(kx_file& out, bool negative, std::uint64_t value, std::uint64_t base) {
    std::array<char, 1 + 22> digits;  // a sign, and 64 bits in octal
    std::size_t at = digits.size();
    do {
        digits[--at] = kHexadecimalDigits[value % base];
        value /= base;
    } while (value != 0);
    if (negative) digits[--at] = '-';
    write_text(out, {digits.data() + at, digits.size() - at});
}

void write_argument(kx_file& out, char letter, const kx_arg& argument) {
    switch (letter) {
        case 'c':
            write_8(out, static_cast<std::uint8_t>(argument.bits() & 0xFFU));
            break;
        case 'd':
        case 'i':
            write_number(out, argument.negative(), argument.magnitude(), 10);
            break;
        case 'u':
            write_number(out, false, argument.bits(), 10);
            break;
        case 'o':
            write_number(out, false, argument.bits(), 8);
            break;
        case 'x':
        case 'p':
            write_number(out, false, argument.bits(), 16);
            break;
        case 's':
        case 'S':
            write_text(out, argument.text());
            break;
        case 'I':
            if (argument.object() != nullptr) {
                argument.object()->print(out);
            } else {
                write_text(out, "NULL");
            }
            break;
        default:
            break;
    }
}

}  // namespace

std::uint32_t kx_vprintf(kx_file& out, std::string_view format, std::span<const kx_arg> arguments) {
    const std::uint32_t before = out.tell();
    std::size_t next = 0;
    for (std::size_t at = 0; at < format.size();) {
        const std::size_t percent = std::min(format.find('%', at), format.size());
        write_text(out, format.substr(at, percent - at));
        if (percent == format.size()) break;
        const std::size_t letter_at = kx_conversion_letter(format, percent);
        if (letter_at == format.size()) break;
        at = letter_at + 1;
        const char letter = format[letter_at];
        if (letter == '%') {
            write_text(out, "%");
            continue;
        }
        const kx_arg_kind wanted = kx_conversion_kind(letter);
        if (wanted == kx_arg_kind::none || next == arguments.size()) continue;
        const kx_arg& argument = arguments[next++];
        if (argument.kind() == wanted) write_argument(out, letter, argument);
    }
    return out.tell() - before;
}

const char* kx_vsnprintf(std::span<char> buffer, std::string_view format,
                         std::span<const kx_arg> arguments) {
    if (buffer.empty()) return "";
    kx_memory_file out(std::as_writable_bytes(buffer.first(buffer.size() - 1)));
    kx_vprintf(out, format, arguments);
    buffer[out.tell()] = '\0';
    return buffer.data();
}

void kx_vformat(kx_string& out, std::string_view format, std::span<const kx_arg> arguments) {
    kx_memory_file text(kFormatGrowth);
    kx_vprintf(text, format, arguments);
    out.assign(text_of(text.written()));
}

}  // namespace vorrim
