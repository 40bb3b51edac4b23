// Lists, signatures and archives made by libFuzzer. The first byte of an input tells which of them
// the rest is. No archive may ever be accepted that is not the one whose list was signed.
//
// The tests of the asan preset run it for some seconds. For longer, after building that preset:
//
//   mkdir build/corpus && build/asan/tests/updater/veyra_fuzz_seeds build/corpus
//   build/asan/tests/updater/veyra_fuzz_update -max_len=8192 -runs=1000000 build/corpus

#include "tests/updater/FuzzSamples.h"

#include "updater/Failure.h"
#include "updater/Journal.h"
#include "updater/UpdateArchive.h"

#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void expect(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// Everything that is accepted is written back as it was.
void tryList(std::string_view text)
{
    try {
        expect(UpdateList::parse(text).text() == text);
    } catch (const Failure &) {
    }
}

void tryJournal(std::string_view text)
{
    try {
        expect(Journal::parse(text).text() == text);
    } catch (const Failure &) {
    }
}

void trySignature(std::string_view text, const UpdateKey &key)
{
    const std::string content = "nobody signed this";
    try {
        Signature::verify(content, text, {key});
        expect(false);
    } catch (const Failure &) {
    }
}

void tryArchive(std::string_view bytes, const UpdateTerms &terms)
{
    static const int file = ::memfd_create("archive", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    expect(::ftruncate(file, 0) == 0);
    expect(::pwrite(file, bytes.data(), bytes.size(), 0) == ssize_t(bytes.size()));

    static const QMap<QByteArray, QByteArray> good = FuzzSamples::files();
    try {
        const UpdateArchive archive(path, terms);
        expect(archive.list().files.size() == size_t(good.size()));
        for (const UpdateList::File &entry : archive.list().files) {
            QByteArray content;
            archive.extract(entry, [&content](const char *piece, size_t count) {
                content.append(piece, qsizetype(count));
            });
            expect(content == good.value(QByteArray::fromStdString(entry.name)));
        }
    } catch (const Failure &) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
    static const UpdateTerms terms{
        {UpdateKey::parse(FuzzSamples::keys().publicKey())}, SampleUpdate::kTarget, {"1.0.0"}};
    if (size == 0)
        return 0;
    const std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    switch (data[0]) {
    case FuzzSamples::kList:
        tryList(rest);
        break;
    case FuzzSamples::kJournal:
        tryJournal(rest);
        break;
    case FuzzSamples::kSignature:
        trySignature(rest, terms.keys.front());
        break;
    case FuzzSamples::kArchive:
        tryArchive(rest, terms);
        break;
    default:
        break;
    }
    return 0;
}
