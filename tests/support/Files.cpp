#include "tests/support/Files.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#ifdef Q_OS_WIN
#include <private/qzipwriter_p.h>
#endif

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

void Files::write(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("Cannot write %s", qPrintable(path));
}

QByteArray Files::read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray content = file.readAll();
    return content.isNull() ? QByteArray("") : content;
}

QStringList Files::tree(const QString &folder)
{
    QStringList names;
    QDirIterator entries(folder,
                         QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QFileInfo entry(entries.next());
        const QString name = QDir(folder).relativeFilePath(entry.filePath());
        names.append(entry.isDir() ? name + u'/' : name);
    }
    names.sort();
    return names;
}

QByteArray Files::noise(qsizetype size, quint32 seed)
{
    QRandomGenerator generator(seed);
    const qsizetype words = (size + 3) / 4;
    QByteArray bytes(words * 4, Qt::Uninitialized);
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), words);
    bytes.truncate(size);
    return bytes;
}

QString Files::sha256(const QByteArray &content)
{
    const QByteArray hash = QCryptographicHash::hash(content, QCryptographicHash::Sha256);
    return QString::fromLatin1(hash.toHex());
}

#ifdef Q_OS_WIN

QByteArray Files::zipped(const QString &folder)
{
    const QTemporaryDir target;
    const QString archive = target.filePath(u"archive.zip"_s);
    QZipWriter writer(archive);
    for (const QString &name : tree(folder)) {
        if (name.endsWith(u'/'))
            writer.addDirectory(name);
        else
            writer.addFile(name, read(folder + u'/' + name));
    }
    writer.close();
    if (writer.status() != QZipWriter::NoError)
        qFatal("Cannot write %s", qPrintable(archive));
    return read(archive);
}

#else

QByteArray Files::zipped(const QString &folder)
{
    const QTemporaryDir target;
    const QString archive = target.filePath(u"archive.zip"_s);
    QStringList arguments{u"-m"_s, u"zipfile"_s, u"-c"_s, archive};
    for (const QString &name : QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        arguments.append(folder + u'/' + name);

    QProcess python;
    python.start(u"python3"_s, arguments);
    if (!python.waitForFinished(int(std::chrono::milliseconds(60s).count())) ||
        python.exitCode() != 0)
        qFatal("python3 makes no archive: %s", python.readAllStandardError().constData());
    return read(archive);
}

#endif
