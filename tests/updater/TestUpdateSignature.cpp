#include "updater/Signature.h"

#include "updater/Failure.h"

#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/KeyPair.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

const QByteArray kContent = "veyra-lanceur 1\n1.0.1\nwindows-x64\n";
const QString kMalformed = u"liste.txt.minisig n'est pas une signature minisign"_s;
const QString kFalse = u"la signature de liste.txt est fausse"_s;

/// Empty for an accepted signature, else why it is refused.
QString verdict(const QByteArray &content, const QByteArray &signature,
                const QList<std::string> &keys)
{
    try {
        std::vector<UpdateKey> parsed;
        for (const std::string &key : keys)
            parsed.push_back(UpdateKey::parse(key));
        Signature::verify(content.toStdString(), signature.toStdString(), parsed);
    } catch (const Failure &failure) {
        return failure.code == ExitCode::Refused ? QString::fromStdString(failure.text)
                                                 : u"another exit code"_s;
    }
    return {};
}

/// Debian's program, the other hand that signs and checks.
class Minisign
{
public:
    static bool isThere() { return !QStandardPaths::findExecutable(u"minisign"_s).isEmpty(); }

    Minisign() { run({u"-G"_s, u"-W"_s, u"-p"_s, at(u"key.pub"_s), u"-s"_s, at(u"key"_s)}); }

    std::string publicKey() const
    {
        return Files::read(at(u"key.pub"_s)).split('\n').value(1).toStdString();
    }

    QByteArray sign(const QByteArray &content, const QStringList &options = {}) const
    {
        Files::write(at(u"liste.txt"_s), content);
        run(QStringList{u"-S"_s, u"-s"_s, at(u"key"_s), u"-m"_s, at(u"liste.txt"_s)} + options);
        return Files::read(at(u"liste.txt.minisig"_s));
    }

    bool accepts(const QByteArray &content, const QByteArray &signature,
                 const QByteArray &publicKeyFile) const
    {
        Files::write(at(u"other.pub"_s), publicKeyFile);
        Files::write(at(u"liste.txt"_s), content);
        Files::write(at(u"liste.txt.minisig"_s), signature);
        return run({u"-V"_s, u"-p"_s, at(u"other.pub"_s), u"-m"_s, at(u"liste.txt"_s)}) == 0;
    }

private:
    QString at(const QString &name) const { return m_folder.filePath(name); }

    static int run(const QStringList &arguments)
    {
        QProcess process;
        process.start(u"minisign"_s, arguments);
        process.closeWriteChannel();
        return process.waitForFinished() ? process.exitCode() : -1;
    }

    QTemporaryDir m_folder;
};

} // namespace

class TestUpdateSignature : public QObject
{
    Q_OBJECT

private slots:
    void keys_data();
    void keys();
    void signatures_data();
    void signatures();
    void acceptsWhatMinisignSigned();
    void refusesWhatMinisignSignedInTheOlderForm();
    void minisignAcceptsWhatTheTestsSign();

private:
    const KeyPair m_active;
    const KeyPair m_spare;
};

void TestUpdateSignature::keys_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<bool>("isGood");

    const QByteArray good = QByteArray::fromStdString(m_active.publicKey());
    const auto row = [](const char *name, const QByteArray &key, bool isGood) {
        QTest::newRow(name) << key << isGood;
    };
    row("a public key", good, true);
    row("nothing", "", false);
    row("cut off", good.chopped(4), false);
    row("too long", good + "AAAA", false);
    row("with a blank", good + " ", false);
    row("with a line end", good + "\n", false);
    row("of another kind", "RX" + good.mid(2), false);
    row("no base64", good.chopped(1) + "!", false);
    row("without the last two bits in use", "RW" + QByteArray(53, 'A') + "=", false);
}

void TestUpdateSignature::keys()
{
    QFETCH(const QByteArray, key);
    QFETCH(const bool, isGood);
    if (isGood) {
        QCOMPARE(UpdateKey::parse(key.toStdString()).key.size(), size_t(32));
        return;
    }
    QVERIFY_THROWS_EXCEPTION(Failure, UpdateKey::parse(key.toStdString()));
}

void TestUpdateSignature::signatures_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *name, const QByteArray &content, const QByteArray &signature,
                        const QString &expected) {
        QTest::newRow(name) << content << signature << expected;
    };
    const QByteArray good = m_active.sign(kContent);
    const QList<QByteArray> lines = good.split('\n');
    const auto withLine = [&lines](qsizetype number, const QByteArray &text) {
        QList<QByteArray> changed = lines;
        changed[number] = text;
        return changed.join('\n');
    };
    const auto withByte = [&lines, &withLine](qsizetype number, qsizetype index) {
        QByteArray bytes = QByteArray::fromBase64(lines.at(number));
        bytes[index] = char(bytes.at(index) ^ 1);
        return withLine(number, bytes.toBase64());
    };

    row("of the active key", kContent, good, {});
    row("of the spare key", kContent, m_spare.sign(kContent), {});
    row("of nothing", "", m_active.sign(""), {});
    row("with an empty trusted comment", kContent, m_active.sign(kContent, ""), {});
    row("with another untrusted comment", kContent, withLine(0, "untrusted comment: hello"), {});
    row("of another content", kContent + " ", good, kFalse);
    row("of a content that is cut off", kContent.chopped(1), good, kFalse);
    row("of an unknown key", kContent, KeyPair().sign(kContent),
        u"liste.txt est signée avec une clé inconnue"_s);
    row("of a key that claims to be the active one", kContent, m_active.impostor().sign(kContent),
        kFalse);
    row("in the older form", kContent,
        m_active.sign(kContent, "timestamp:1735689600", KeyPair::Form::Plain),
        u"liste.txt.minisig est d'une ancienne forme, sans somme BLAKE2b"_s);
    row(
        "in the older form that claims to be the newer one", kContent,
        [&] {
            QList<QByteArray> plain =
                m_active.sign(kContent, "timestamp:1735689600", KeyPair::Form::Plain).split('\n');
            QByteArray bytes = QByteArray::fromBase64(plain.at(1));
            bytes[1] = 'D';
            plain[1] = bytes.toBase64();
            return plain.join('\n');
        }(),
        kFalse);
    row("of no known form", kContent, withByte(1, 0), kMalformed);
    row("with one bit of the signature turned", kContent, withByte(1, 40), kFalse);
    row("with its last bit turned", kContent, withByte(1, 73), kFalse);
    row(
        "with the spare key's number", kContent,
        [&] {
            QByteArray bytes = QByteArray::fromBase64(lines.at(1));
            bytes.replace(
                2, 8,
                QByteArray::fromBase64(QByteArray::fromStdString(m_spare.publicKey())).mid(2, 8));
            return withLine(1, bytes.toBase64());
        }(),
        kFalse);
    row("with another trusted comment", kContent, withLine(2, "trusted comment: timestamp:1"),
        kFalse);
    row("with one bit of the second signature turned", kContent, withByte(3, 5), kFalse);
    row("without the second signature", kContent, lines.mid(0, 3).join('\n') + "\n", kMalformed);
    row("that is empty", kContent, "", kMalformed);
    row("of one line", kContent, "untrusted comment: a\n", kMalformed);
    row("without its last line end", kContent, good.chopped(1), kMalformed);
    row("with line ends of Windows", kContent, QByteArray(good).replace("\n", "\r\n"), kMalformed);
    row("with something behind it", kContent, good + "\n", kMalformed);
    row("twice", kContent, good + good, kMalformed);
    row("without the untrusted comment", kContent, good.mid(good.indexOf('\n') + 1), kMalformed);
    row("without the mark of the trusted comment", kContent, withLine(2, "comment: a"), kMalformed);
    row("that is no base64", kContent, withLine(1, "!" + lines.at(1).mid(1)), kMalformed);
    row("with a blank in the base64", kContent, withLine(1, lines.at(1) + " "), kMalformed);
    row("that is too short", kContent, withLine(1, lines.at(1).chopped(4)), kMalformed);
    row("that is too long", kContent, withLine(1, "AAAA" + lines.at(1)), kMalformed);
    row("longer than 4 KB", kContent, m_active.sign(kContent, QByteArray(4096, 'a')), kMalformed);
}

void TestUpdateSignature::signatures()
{
    QFETCH(const QByteArray, content);
    QFETCH(const QByteArray, signature);
    QFETCH(const QString, expected);
    QCOMPARE(verdict(content, signature, {m_active.publicKey(), m_spare.publicKey()}), expected);
}

void TestUpdateSignature::acceptsWhatMinisignSigned()
{
    if (!Minisign::isThere())
        QSKIP("minisign is not installed");
    const Minisign minisign;
    const QByteArray signature = minisign.sign(kContent, {u"-t"_s, u"été, fichier liste.txt"_s});
    QVERIFY(signature.contains("été"));
    QCOMPARE(verdict(kContent, signature, {m_active.publicKey(), minisign.publicKey()}), QString());
    QCOMPARE(verdict(kContent + ' ', signature, {minisign.publicKey()}), kFalse);
}

void TestUpdateSignature::refusesWhatMinisignSignedInTheOlderForm()
{
    if (!Minisign::isThere())
        QSKIP("minisign is not installed");
    const Minisign minisign;
    const QByteArray signature = minisign.sign(kContent, {u"-l"_s});
    QCOMPARE(verdict(kContent, signature, {minisign.publicKey()}),
             u"liste.txt.minisig est d'une ancienne forme, sans somme BLAKE2b"_s);
}

void TestUpdateSignature::minisignAcceptsWhatTheTestsSign()
{
    if (!Minisign::isThere())
        QSKIP("minisign is not installed");
    const Minisign minisign;
    const QByteArray signature = m_active.sign(kContent);
    QVERIFY(minisign.accepts(kContent, signature, m_active.publicKeyFile()));
    QVERIFY(!minisign.accepts(kContent + ' ', signature, m_active.publicKeyFile()));
    QVERIFY(!minisign.accepts(kContent, signature, m_spare.publicKeyFile()));
}

VEYRA_CORE_TEST_MAIN(TestUpdateSignature)
#include "TestUpdateSignature.moc"
