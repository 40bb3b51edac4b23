#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QDateTime>
#include <QFile>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

/// The archive was packed by zlib; another library in its place would want another sum.
constexpr auto kListing = uR"(
b8a1d2c44cc77f0e96e84211a43762cf498b2af8e7039cea30fac61cd5b14b0f  api/launcher_version.json
dd3fef75b42c75267731ceed85e4488e4486778072b27e09e22562acf887f81a  api/news.php
c6c342808b85f3f8746cf9dc872d45edc04ee852900e17d35cf5505418a661b2  api/status.php
1fce967cccb8603cb56eeaba79f76cee09aa8b50d96d653f73b060f7aadb809d  client/DofusClient.zip
329b7e005efd70163b322949062fe6bbfec8b5209a793d4e69f2f4bd2560b33d  index.html
1310ca2c8932dbd118668bd97442558a3e1f546b5e15c69699dfbd6024f548d8  updates/files/Dofus.exe
ed5b8120601641c516d02ed9dc643a59648524248d5e2af877da39ea253c723e  updates/files/DofusInvoker.swf
70a9914643e1495008824c1fa232b52b66e2c680ff61c6e9db87593fb83f7f25  updates/files/Lisez-moi d'abord.txt
91e3faafd322bcdf160f3f0ce886acb092b9b9e2a1e8526b40f21a8898a8700b  updates/files/data/texte.json
daba1303fe5dcf4f83f9221f28ff4d09b53df3aa6bd9cabccb479791df6116ff  updates/files/data/vide
7f9ed290264c0f06b433a3ce2441a13e590023000508c4c5286af8b01996229b  updates/files/data/Île aux Cèdres.map
2b0f7308db282ed56b27684f60fb5c03b245b00697850d8fce5f4ef17f3d17ce  updates/files/data/été/thème.ogg
dcaf9ad8dda2cb11aee5cb3354afef38805deb526b58b54e21a104e940cdc8be  updates/files/data/𝄞.txt
74a6d2d79fe3951c9475e1cb443f0ee390d0bc7eed74e7884b2abc4e7bf57a16  updates/files/data/Ａ.txt
de3e96be9cab5b2b9bc56d75680781687b655d741dcf72ea6ec2142f5b037d80  updates/files/profond/a/b/c/d/é.txt
60f787c0cff51e6d575260e89b89f42c99e2dec420fefcd7741146e41ae19939  updates/files/reg/outil.EXE
638eebdbb5a70ca5e8b24f18f00eb890c625bea121f50b9d8c85451ffa43e4da  updates/version.json
)";

using ClientFiles = QMap<QString, QByteArray>;

/// Names that systems sort, compare and write in ways of their own.
ClientFiles client()
{
    QByteArray text;
    for (int i = 0; i < 20'000; ++i)
        text += "ligne " + QByteArray::number(i * i % 1009) + '\n';
    return {{u"Dofus.exe"_s, "program"},
            {u"DofusInvoker.swf"_s, "marker"},
            {u"Lisez-moi d'abord.txt"_s, text},
            {u"Zone.txt"_s, "upper case comes first"},
            {u"data/Île aux Cèdres.map"_s, Files::noise(300'000)},
            {u"data/e\u0301te\u0301/the\u0300me.ogg"_s, Files::noise(5'000, 2)},
            {u"data/texte.json"_s, QByteArray(200'000, 'x')},
            {u"data/vide"_s, ""},
            {u"data/\U0001d11e.txt"_s, "beyond 16 bits"},
            {u"data/\uff21.txt"_s, "UTF-8 and UTF-16 sort it and the one before differently"},
            {u"profond/a/b/c/d/é.txt"_s, text.first(1'000)},
            {u"reg/outil.EXE"_s, "another program"}};
}

void setTime(const QString &path, const QDateTime &time)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) ||
        !file.setFileTime(time, QFileDevice::FileModificationTime))
        qFatal("Cannot change the time of %s", qPrintable(path));
}

QStringList listing(const QMap<QString, QByteArray> &site)
{
    QStringList lines;
    for (auto file = site.begin(); file != site.end(); ++file)
        lines.append(Files::sha256(file.value()) + u"  "_s + file.key());
    return lines;
}

} // namespace

/// The same on every system that the tool runs on: operators may change it, and players' launchers
/// and the network between must not see that.
class TestPublishSameBytes : public QObject
{
    Q_OBJECT

private slots:
    void aSiteIsTheSameEverywhere();
};

void TestPublishSameBytes::aSiteIsTheSameEverywhere()
{
    const Publisher publisher;
    const QString folder = publisher.beside(u"client"_s);
    const auto run = [&publisher](const QStringList &arguments) {
        const Publisher::Result result = publisher.run(arguments);
        if (result.code != 0)
            qWarning("%s", qPrintable(result.errors));
        return result.code;
    };
    ClientFiles files = client();
    Clients::write(folder, files);
    setTime(folder + u"/Zone.txt"_s, QDateTime::fromSecsSinceEpoch(700'000'000));
    setTime(folder + u"/Dofus.exe"_s, QDateTime::fromSecsSinceEpoch(2'000'000'000));
    QCOMPARE(run({u"init"_s, u"https://play.example.org/"_s}), 0);
    QCOMPARE(run({u"client"_s, folder}), 0);
    QCOMPARE(run({u"mettre-en-ligne"_s}), 0);
    // The second archive has what was packed for the first.
    files.insert(u"data/vide"_s, "no longer empty");
    files.remove(u"Zone.txt"_s);
    QVERIFY(QFile::remove(folder + u"/Zone.txt"_s));
    Clients::write(folder, files);
    QCOMPARE(run({u"client"_s, folder}), 0);
    QCOMPARE(run({u"nouvelles"_s, u"ajouter"_s, u"Été à Veyra"_s, u"Dès <b>ce soir</b>, 20 %1"_s,
                  u"--date"_s, u"24/12"_s}),
             0);
    QCOMPARE(run({u"etat"_s, u"en-ligne"_s, u"128"_s}), 0);
    QCOMPARE(run({u"mettre-en-ligne"_s}), 0);
    QCOMPARE(listing(publisher.site()),
             QString::fromUtf16(kListing).split(u'\n', Qt::SkipEmptyParts));
}

VEYRA_CORE_TEST_MAIN(TestPublishSameBytes)
#include "TestPublishSameBytes.moc"
