#pragma once

#include <sodium.h>

#include <cstddef>
#include <string>
#include <string_view>

/// The sum of bytes that come piece by piece.
class Sha256
{
public:
    Sha256() { crypto_hash_sha256_init(&m_state); }

    void add(const char *bytes, size_t count);
    /// In lower-case hexadecimal; nothing can be added afterwards.
    std::string finish();

    /// Whether it is the text of a sum.
    static bool isSum(std::string_view text);

private:
    crypto_hash_sha256_state m_state{};
};
