#include "Platform/UUID.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <sys/random.h>
#include <system_error>

namespace keepery::UUID {

namespace {

std::string random(const char (&digits)[17]) {
    std::array<std::uint8_t, 16> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t n = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::system_error(errno, std::generic_category(), "getrandom");
        }
        filled += static_cast<std::size_t>(n);
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0f) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3f) | 0x80); // RFC 4122 variant
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text.push_back('-');
        }
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0f]);
    }
    return text;
}

} // namespace

std::string randomLowercase() {
    return random("0123456789abcdef");
}

std::string randomUppercase() {
    return random("0123456789ABCDEF");
}

} // namespace keepery::UUID
