#pragma once

#include "tests/updater/SampleUpdate.h"

/// What the fuzzer and the maker of its first inputs agree on.
namespace FuzzSamples {

// The first byte of an input.
inline constexpr char kList = 'L';
inline constexpr char kJournal = 'J';
inline constexpr char kSignature = 'S';
inline constexpr char kArchive = 'A';

/// The same in every run: a signed archive must stay one.
inline KeyPair keys()
{
    return KeyPair::fromSeed(QByteArray(32, 'v'));
}

inline QMap<QByteArray, QByteArray> files()
{
    return SampleUpdate().files;
}

} // namespace FuzzSamples
