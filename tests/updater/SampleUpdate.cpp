#include "tests/updater/SampleUpdate.h"

#include "tests/support/Files.h"

QByteArray sampleList(const QByteArray &version, const QByteArray &target,
                      const QMap<QByteArray, QByteArray> &files)
{
    // The map is sorted by bytes, as the list shall be.
    QByteArray list = "veyra-lanceur 1\n" + version + "\n" + target + "\n";
    for (auto file = files.begin(); file != files.end(); ++file) {
        list += Files::sha256(file.value()).toLatin1() + ' ' +
                QByteArray::number(file.value().size()) + ' ' + file.key() + '\n';
    }
    return list;
}

QByteArray SampleUpdate::archive(const KeyPair &keys) const
{
    QByteArray list = sampleList(version, target, files);
    if (changeList)
        changeList(list);
    QByteArray signature = keys.sign(list);
    if (changeSignature)
        changeSignature(signature);
    if (changeSignedList)
        changeSignedList(list);

    ZipBuilder zip;
    for (auto file = files.begin(); file != files.end(); ++file)
        zip.add({.name = file.key(), .content = file.value(), .deflated = !file.value().isEmpty()});
    zip.add({.name = "liste.txt", .content = list, .deflated = true});
    zip.add({.name = "liste.txt.minisig", .content = signature});
    if (changeZip)
        changeZip(zip);
    QByteArray bytes = zip.bytes();
    if (changeBytes)
        changeBytes(bytes);
    return bytes;
}
