#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QDesktopServices>
#include <QSignalSpy>
#include <QTest>
#include <QTextCursor>
#include <QTextEdit>
#include <QUrl>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

const QStringList kSchemes{u"http"_s, u"https"_s,      u"file"_s,   u"ftp"_s,
                           u"smb"_s,  u"javascript"_s, u"mailto"_s, u"steam"_s};

} // namespace

/// Links in the news, as a player uses them with the mouse.
class TestNewsLinks : public QObject
{
    Q_OBJECT

public slots:
    void openUrl(const QUrl &url) { m_opened.append(url); }

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup() { m_launcher.reset(); }
    void webLinksOpenInTheBrowser_data();
    void webLinksOpenInTheBrowser();
    void nothingElseOpens_data();
    void nothingElseOpens();
    void theHandShowsOverTheLinkOnly();
    void aClickBesideTheLinkOpensNothing();
    void selectingOpensNothing();
    void otherMouseButtonsOpenNothing();

private:
    void show(const QString &href);
    QWidget *viewport() const { return m_launcher->news()->viewport(); }
    Qt::CursorShape shape() const { return viewport()->cursor().shape(); }
    /// The middle of the first occurrence of a text.
    QPoint middleOf(const QString &text) const;

    std::unique_ptr<LauncherFixture> m_launcher;
    QList<QUrl> m_opened;
};

void TestNewsLinks::initTestCase()
{
    for (const QString &scheme : kSchemes)
        QDesktopServices::setUrlHandler(scheme, this, "openUrl");
}

void TestNewsLinks::cleanupTestCase()
{
    for (const QString &scheme : kSchemes)
        QDesktopServices::unsetUrlHandler(scheme);
}

void TestNewsLinks::init()
{
    m_opened.clear();
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->open();
    QVERIFY(QTest::qWaitForWindowActive(m_launcher->window()));
}

void TestNewsLinks::show(const QString &href)
{
    m_launcher->call("onNewsReceived",
                     QStringList{u"Avant <a href=\"%1\">lien</a> après"_s.arg(href)});
    QCOMPARE(m_launcher->news()->toPlainText(), u"• Avant lien après"_s);
}

QPoint TestNewsLinks::middleOf(const QString &text) const
{
    const QTextCursor found = m_launcher->news()->document()->find(text);
    QTextCursor start = found;
    start.setPosition(found.selectionStart());
    return (m_launcher->news()->cursorRect(start).center() +
            m_launcher->news()->cursorRect(found).center()) /
           2;
}

void TestNewsLinks::webLinksOpenInTheBrowser_data()
{
    QTest::addColumn<QString>("href");
    QTest::newRow("http") << u"http://forum.test/sujet/12?page=2#fin"_s;
    QTest::newRow("https") << u"https://forum.test/"_s;
    QTest::newRow("a scheme in capitals") << u"HTTPS://forum.test/"_s;
}

void TestNewsLinks::webLinksOpenInTheBrowser()
{
    QFETCH(const QString, href);
    show(href);
    QTest::mouseClick(viewport(), Qt::LeftButton, {}, middleOf(u"lien"_s));
    QCOMPARE(m_opened, QList<QUrl>{QUrl(href)});
    QCOMPARE(m_launcher->news()->toPlainText(), u"• Avant lien après"_s);
}

void TestNewsLinks::nothingElseOpens_data()
{
    QTest::addColumn<QString>("href");
    QTest::newRow("a file") << u"file:///etc/passwd"_s;
    QTest::newRow("a path") << u"/etc/passwd"_s;
    QTest::newRow("a share") << u"//host/share/setup.exe"_s;
    QTest::newRow("a drive") << u"C:/Windows/system32/calc.exe"_s;
    QTest::newRow("a relative path") << u"setup.exe"_s;
    QTest::newRow("a place in the text") << u"#fin"_s;
    QTest::newRow("a script") << u"javascript:alert(1)"_s;
    QTest::newRow("another program's scheme") << u"steam://run/1"_s;
    QTest::newRow("mail") << u"mailto:a@b.test"_s;
    QTest::newRow("a server of files") << u"ftp://forum.test/"_s;
    QTest::newRow("a share by its scheme") << u"smb://host/share"_s;
    QTest::newRow("no host") << u"http:///etc/passwd"_s;
    QTest::newRow("a path after the scheme") << u"https:setup.exe"_s;
    QTest::newRow("nothing") << QString();
}

void TestNewsLinks::nothingElseOpens()
{
    QFETCH(const QString, href);
    show(href);
    QTest::mouseMove(viewport(), middleOf(u"lien"_s));
    QCOMPARE(shape(), Qt::IBeamCursor);
    QTest::mouseClick(viewport(), Qt::LeftButton, {}, middleOf(u"lien"_s));
    QVERIFY(m_opened.isEmpty());
    QCOMPARE(m_launcher->news()->toPlainText(), u"• Avant lien après"_s);
}

void TestNewsLinks::theHandShowsOverTheLinkOnly()
{
    show(u"https://forum.test/"_s);
    QTest::mouseMove(viewport(), middleOf(u"Avant"_s));
    QCOMPARE(shape(), Qt::IBeamCursor);
    QTest::mouseMove(viewport(), middleOf(u"lien"_s));
    QCOMPARE(shape(), Qt::PointingHandCursor);
    QTest::mouseMove(viewport(), middleOf(u"après"_s));
    QCOMPARE(shape(), Qt::IBeamCursor);
}

void TestNewsLinks::aClickBesideTheLinkOpensNothing()
{
    show(u"https://forum.test/"_s);
    QTest::mouseClick(viewport(), Qt::LeftButton, {}, middleOf(u"Avant"_s));
    QTest::mouseClick(viewport(), Qt::LeftButton, {},
                      QPoint(viewport()->width() / 2, viewport()->height() - 5));
    QVERIFY(m_opened.isEmpty());
}

void TestNewsLinks::selectingOpensNothing()
{
    show(u"https://forum.test/"_s);
    const QPoint link = middleOf(u"lien"_s);
    // From the link and back to it, and from beside it onto it.
    for (const QPoint from : {link, middleOf(u"Avant"_s)}) {
        QTest::mousePress(viewport(), Qt::LeftButton, {}, from);
        QTest::mouseMove(viewport(), middleOf(u"après"_s));
        const QPoint end = from == link ? link + QPoint(12, 0) : link;
        QTest::mouseRelease(viewport(), Qt::LeftButton, {}, end);
        QVERIFY(m_opened.isEmpty());
    }
}

void TestNewsLinks::otherMouseButtonsOpenNothing()
{
    show(u"https://forum.test/"_s);
    for (const Qt::MouseButton button : {Qt::RightButton, Qt::MiddleButton})
        QTest::mouseClick(viewport(), button, {}, middleOf(u"lien"_s));
    QVERIFY(m_opened.isEmpty());
}

VEYRA_WIDGET_TEST_MAIN(TestNewsLinks)
#include "TestNewsLinks.moc"
