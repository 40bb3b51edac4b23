#include "updater/Sha256.h"

#include <algorithm>
#include <array>

namespace {

constexpr size_t kSumLength = size_t(2) * crypto_hash_sha256_BYTES; // in hexadecimal digits

} // namespace

void Sha256::add(const char *bytes, size_t count)
{
    crypto_hash_sha256_update(&m_state, reinterpret_cast<const unsigned char *>(bytes), count);
}

std::string Sha256::finish()
{
    std::array<unsigned char, crypto_hash_sha256_BYTES> sum{};
    crypto_hash_sha256_final(&m_state, sum.data());
    std::array<char, kSumLength + 1> text{};
    sodium_bin2hex(text.data(), text.size(), sum.data(), sum.size());
    return text.data();
}

bool Sha256::isSum(std::string_view text)
{
    return text.size() == kSumLength && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}
