/// The printf conversions that the library's messages have, several times as fast as the C library has them.
#pragma once

#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstring>

namespace zel {

/// Text in a buffer of limited size, without a terminating NUL. What does not fit gives false.
class bounded_text {
public:
    bounded_text(char *text, std::size_t size) : end_(text), limit_(text + size) {}

    bool add(const char *text, std::size_t length)
    {
        if (length > static_cast<std::size_t>(limit_ - end_))
            return false;
        std::memcpy(end_, text, length);
        end_ += length;
        return true;
    }

    template <typename Number> bool add_number(Number number, int base)
    {
        const auto [end, error] = std::to_chars(end_, limit_, number, base);
        end_ = end;
        return error == std::errc{};
    }

    bool add_8_hex_digits(std::uint32_t number)
    {
        char digits[8];
        for (int i = 7; i >= 0; --i, number >>= 4)
            digits[i] = "0123456789abcdef"[number & 0xF];
        return add(digits, sizeof digits);
    }

    const char *end() const { return end_; }

private:
    char *end_;
    char *const limit_;
};

/// As vsnprintf(), for %s, %d, %u, %x, %08x and %p where no pointer is null and the text fits.
/// @return -1 where it cannot tell what vsnprintf() would write; part of the text is then written
inline int quick_format(char *text, std::size_t size, const char *fmt, va_list args)
{
    bounded_text written(text, size);
    for (;;) {
        const char *const conversion = strchrnul(fmt, '%');
        if (!written.add(fmt, static_cast<std::size_t>(conversion - fmt)))
            return -1;
        if (*conversion == 0)
            break;
        bool fits = false;
        fmt = conversion + 2;
        switch (conversion[1]) {
        case 's':
            if (const char *const value = va_arg(args, const char *); value != nullptr)
                fits = written.add(value, std::strlen(value));
            break;
        case 'd': fits = written.add_number(va_arg(args, int), 10); break;
        case 'u': fits = written.add_number(va_arg(args, unsigned), 10); break;
        case 'x': fits = written.add_number(va_arg(args, unsigned), 16); break;
        case '0':
            if (fmt[0] == '8' && fmt[1] == 'x') {
                fits = written.add_8_hex_digits(va_arg(args, unsigned));
                fmt += 2;
            }
            break;
        case 'p':
            if (const void *const value = va_arg(args, const void *); value != nullptr)
                fits = written.add("0x", 2) && written.add_number(reinterpret_cast<std::uintptr_t>(value), 16);
            break;
        default: break;
        }
        if (!fits)
            return -1;
    }
    return written.add("", 1) ? static_cast<int>(written.end() - text) - 1 : -1;
}

} // namespace zel
