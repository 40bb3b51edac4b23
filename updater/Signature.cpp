#include "updater/Signature.h"

#include "updater/Failure.h"

#include <sodium.h>

#include <algorithm>
#include <optional>

namespace {

constexpr std::string_view kUntrustedComment = "untrusted comment: ";
constexpr std::string_view kTrustedComment = "trusted comment: ";

// The two letters that a key and both forms of a signature begin with.
constexpr std::string_view kKeyMark = "Ed";
constexpr std::string_view kPlainMark = "Ed";
constexpr std::string_view kPrehashedMark = "ED";
constexpr size_t kMarkLength = 2;
constexpr size_t kIdLength = std::tuple_size_v<UpdateKey::Id>;

constexpr const char *kMalformed = "liste.txt.minisig n'est pas une signature minisign";

struct ParsedSignature
{
    UpdateKey::Id keyId{};
    std::array<unsigned char, crypto_sign_BYTES> signature{};
    std::string trustedComment;
    std::array<unsigned char, crypto_sign_BYTES> globalSignature{};
};

/// Exactly `size` bytes, without blanks and with its padding; nothing else is decoded.
std::optional<std::string> decoded(std::string_view base64, size_t size)
{
    std::string bytes(size, '\0');
    size_t found = 0;
    const char *end = nullptr;
    const int failed = sodium_base642bin(reinterpret_cast<unsigned char *>(bytes.data()),
                                         bytes.size(), base64.data(), base64.size(), nullptr,
                                         &found, &end, sodium_base64_VARIANT_ORIGINAL);
    if (failed != 0 || found != size || end != base64.data() + base64.size())
        return std::nullopt;
    return bytes;
}

/// Cuts off the next line, which must begin with `start`; what follows that is returned.
std::string_view takeLine(std::string_view &text, std::string_view start)
{
    const size_t end = text.find('\n');
    if (end == std::string_view::npos || !text.starts_with(start))
        throw Failure::refused(kMalformed);
    const std::string_view line = text.substr(start.size(), end - start.size());
    text.remove_prefix(end + 1);
    return line;
}

ParsedSignature parse(std::string_view text)
{
    if (text.size() > Signature::kLongestText)
        throw Failure::refused(kMalformed);
    takeLine(text, kUntrustedComment);
    const std::string_view signature = takeLine(text, {});
    const std::string_view comment = takeLine(text, kTrustedComment);
    const std::string_view global = takeLine(text, {});
    if (!text.empty())
        throw Failure::refused(kMalformed);

    ParsedSignature result;
    const std::optional<std::string> bytes =
        decoded(signature, kMarkLength + kIdLength + result.signature.size());
    const std::optional<std::string> globalBytes = decoded(global, result.globalSignature.size());
    if (!bytes || !globalBytes)
        throw Failure::refused(kMalformed);
    if (bytes->starts_with(kPlainMark))
        throw Failure::refused("liste.txt.minisig est d'une ancienne forme, sans somme BLAKE2b");
    if (!bytes->starts_with(kPrehashedMark))
        throw Failure::refused(kMalformed);

    const auto id = bytes->begin() + kMarkLength;
    std::copy_n(id, kIdLength, result.keyId.begin());
    std::copy(id + kIdLength, bytes->end(), result.signature.begin());
    result.trustedComment = comment;
    std::copy(globalBytes->begin(), globalBytes->end(), result.globalSignature.begin());
    return result;
}

bool isSignedBy(const UpdateKey &key, const ParsedSignature &parsed, std::string_view content)
{
    std::array<unsigned char, crypto_generichash_BYTES_MAX> sum{};
    crypto_generichash(sum.data(), sum.size(),
                       reinterpret_cast<const unsigned char *>(content.data()), content.size(),
                       nullptr, 0);
    if (crypto_sign_verify_detached(parsed.signature.data(), sum.data(), sum.size(),
                                    key.key.data()) != 0)
        return false;

    std::string whole(parsed.signature.begin(), parsed.signature.end());
    whole += parsed.trustedComment;
    return crypto_sign_verify_detached(parsed.globalSignature.data(),
                                       reinterpret_cast<const unsigned char *>(whole.data()),
                                       whole.size(), key.key.data()) == 0;
}

} // namespace

UpdateKey UpdateKey::parse(std::string_view base64)
{
    UpdateKey result;
    const std::optional<std::string> bytes =
        decoded(base64, kMarkLength + kIdLength + result.key.size());
    if (!bytes || !bytes->starts_with(kKeyMark))
        throw Failure::refused("clé de mise à jour illisible dans ce programme");
    const auto id = bytes->begin() + kMarkLength;
    std::copy_n(id, kIdLength, result.id.begin());
    std::copy(id + kIdLength, bytes->end(), result.key.begin());
    return result;
}

void Signature::verify(std::string_view content, std::string_view signature,
                       const std::vector<UpdateKey> &keys)
{
    // Without sodium_init(): it chooses what suits the processor, and begins with random numbers,
    // which nothing here needs and Windows takes from a library that could lie beside the program.
    const ParsedSignature parsed = parse(signature);
    const bool isKnown = std::any_of(keys.begin(), keys.end(), [&parsed](const UpdateKey &key) {
        return key.id == parsed.keyId;
    });
    if (!isKnown)
        throw Failure::refused("liste.txt est signée avec une clé inconnue");
    const bool isGood = std::any_of(keys.begin(), keys.end(), [&](const UpdateKey &key) {
        return key.id == parsed.keyId && isSignedBy(key, parsed, content);
    });
    if (!isGood)
        throw Failure::refused("la signature de liste.txt est fausse");
}
