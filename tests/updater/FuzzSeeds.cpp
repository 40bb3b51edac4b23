// Writes the inputs that fuzzing starts from into the folder that it is given.

#include "tests/updater/FuzzSamples.h"

#include "tests/support/Files.h"

using namespace Qt::Literals::StringLiterals;

int main(int argc, char **argv)
{
    if (argc != 2)
        qFatal("Usage: veyra_fuzz_seeds FOLDER");
    const QString folder = QString::fromLocal8Bit(argv[1]) + u'/';
    const KeyPair keys = FuzzSamples::keys();
    const QByteArray list = sampleList("1.0.1", SampleUpdate::kTarget, FuzzSamples::files());

    Files::write(folder + u"list"_s, FuzzSamples::kList + list);
    Files::write(folder + u"journal"_s,
                 FuzzSamples::kJournal +
                     QByteArray("veyra-journal 1\nlanceur VeyraLauncher.exe\nancien ") +
                     QByteArray(64, 'a') + "\nnouveau " + QByteArray(64, 'b') + "\ngarde " +
                     QByteArray(64, 'c') +
                     QByteArray("\ndossier a\n"
                                "ajoute a/b.dll\nremplace liste.txt\nretire c.dll\nfin\n"));
    Files::write(folder + u"signature"_s, FuzzSamples::kSignature + keys.sign(list));
    Files::write(folder + u"archive"_s, FuzzSamples::kArchive + SampleUpdate().archive(keys));
    SampleUpdate stored;
    stored.changeZip = [](ZipBuilder &zip) {
        for (ZipEntry &entry : zip.entries)
            entry.deflated = false;
    };
    Files::write(folder + u"stored"_s, FuzzSamples::kArchive + stored.archive(keys));
}
