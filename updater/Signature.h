#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A public key as minisign writes it.
struct UpdateKey
{
    using Id = std::array<unsigned char, 8>;

    Id id{};
    std::array<unsigned char, 32> key{};

    /// From the second line of a public key file. Throws a Failure for anything else.
    static UpdateKey parse(std::string_view base64);
};

/// Signatures as "minisign -S" makes them: Ed25519 over the BLAKE2b-512 sum of the file, and a
/// second one over that and the trusted comment. The older form, without the sum, is refused.
namespace Signature {

/// Longer ones are no signature.
inline constexpr size_t kLongestText = 4096;

/// Throws a Failure unless `signature` is one of `content` by one of the keys.
void verify(std::string_view content, std::string_view signature,
            const std::vector<UpdateKey> &keys);

} // namespace Signature
