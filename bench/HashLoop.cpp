#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include <cstdio>
#include <cstdlib>

/// Hashes the files that a list names, one path per line, and prints the seconds that it took.
int main(int argc, char **argv)
{
    QFile list(QString::fromLocal8Bit(argc > 1 ? argv[1] : ""));
    if (!list.open(QIODevice::ReadOnly))
        return EXIT_FAILURE;
    const QStringList paths =
        QString::fromUtf8(list.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);

    QElapsedTimer elapsed;
    elapsed.start();
    for (const QString &path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return EXIT_FAILURE;
        QCryptographicHash hash(QCryptographicHash::Sha256);
        hash.addData(&file);
    }
    std::printf("%.6f\n", static_cast<double>(elapsed.nsecsElapsed()) / 1e9);
    return EXIT_SUCCESS;
}
