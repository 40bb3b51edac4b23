#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QCursor>
#include <QDesktopServices>
#include <QHelpEvent>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QTest>
#include <QTextCursor>
#include <QTextEdit>
#include <QToolTip>
#include <QUrl>

#include <memory>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

const QStringList kSchemes{u"http"_s, u"https"_s,      u"file"_s,   u"ftp"_s,
                           u"smb"_s,  u"javascript"_s, u"mailto"_s, u"steam"_s};

} // namespace

/// Links in the news, as a player uses them with the mouse or the keyboard.
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
    void theHandGoesWhenTheTextIsScrolled();
    void theToolTipTellsTheHost_data();
    void theToolTipTellsTheHost();
    void aClickBesideTheLinkOpensNothing();
    void selectingOpensNothing();
    void otherMouseButtonsOpenNothing();

    void tabGoesFromLinkToLink();
    void enterOpensTheLinkThatTabHasComeTo();
    void enterOpensNothingElse();
    void theLinkIsKeptForWhoComesBackFromTheBrowser();
    void otherNewsHaveOtherLinks();

private:
    void showItems(const QStringList &items);
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) const;
    QString selected() const { return m_launcher->news()->textCursor().selectedText(); }
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
    showItems({u"Avant <a href=\"%1\">lien</a> après"_s.arg(href)});
    QCOMPARE(m_launcher->news()->toPlainText(), u"• Avant lien après"_s);
}

/// The last line tells that they are there: the window may take its time.
void TestNewsLinks::showItems(const QStringList &items)
{
    QString last = items.last();
    last.remove(QRegularExpression(u"<[^>]*>"_s));
    m_launcher->call("onNewsReceived", items);
    QTRY_VERIFY(m_launcher->news()->toPlainText().endsWith(last));
}

void TestNewsLinks::press(Qt::Key key, Qt::KeyboardModifiers modifiers) const
{
    QTest::keyClick(QApplication::focusWidget(), key, modifiers);
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
    QTest::newRow("foreign letters") << u"https://vеyra.test/été"_s;
    QTest::newRow("a quotation mark and blanks") << u"https://forum.test/%22%20--run%20x"_s;
    QTest::newRow("a backslash") << u"https://forum.test/a%5Cb"_s;
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
    QTest::newRow("a host that is a user's name") << u"https://forum.test@autre.test/"_s;
    QTest::newRow("a user and a password") << u"https://a:b@forum.test/"_s;
    QTest::newRow("backslashes for slashes") << u"https:\\\\forum.test\\sujet"_s;
    QTest::newRow("a port that is no number") << u"https://forum.test:port/"_s;
    QTest::newRow("a port that is too large") << u"https://forum.test:99999/"_s;
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

void TestNewsLinks::theHandGoesWhenTheTextIsScrolled()
{
    QStringList items{u"<a href='https://forum.test/'>lien</a>"_s};
    for (int i = 0; i < 60; ++i)
        items.append(u"Ligne %1"_s.arg(i));
    showItems(items);
    const QPoint link = middleOf(u"lien"_s);
    QCursor::setPos(viewport()->mapToGlobal(link));
    QTest::mouseMove(viewport(), link);
    QTRY_VERIFY(viewport()->underMouse());
    QCOMPARE(shape(), Qt::PointingHandCursor);
    QScrollBar *bar = m_launcher->news()->verticalScrollBar();
    bar->setValue(bar->maximum());
    QCOMPARE(shape(), Qt::IBeamCursor);
    bar->setValue(0);
    QCOMPARE(shape(), Qt::PointingHandCursor);
}

void TestNewsLinks::theToolTipTellsTheHost_data()
{
    QTest::addColumn<QString>("href");
    QTest::addColumn<QString>("host");
    QTest::newRow("of a link") << u"https://forum.test/sujet"_s << u"forum.test"_s;
    QTest::newRow("with foreign letters spelled out")
        << u"https://vеyra.test/"_s << u"xn--vyra-v4d.test"_s;
    QTest::newRow("of nothing else") << u"file:///etc/passwd"_s << QString();
}

void TestNewsLinks::theToolTipTellsTheHost()
{
    QFETCH(const QString, href);
    show(href);
    const auto tipAt = [this](QPoint place) {
        QHelpEvent event(QEvent::ToolTip, place, viewport()->mapToGlobal(place));
        QApplication::sendEvent(viewport(), &event);
        return QToolTip::isVisible() ? QToolTip::text() : QString();
    };
    QTEST(tipAt(middleOf(u"lien"_s)), "host");
    QToolTip::hideText();
    QTRY_VERIFY(!QToolTip::isVisible());
    QCOMPARE(tipAt(middleOf(u"Avant"_s)), QString());
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
    const QPoint side(QApplication::startDragDistance() / 2 + 1, 0);
    QVERIFY(!m_launcher->news()->anchorAt(link - side).isEmpty());
    QVERIFY(!m_launcher->news()->anchorAt(link + side).isEmpty());
    // Within the link, from it, and onto it.
    const QList<std::pair<QPoint, QPoint>> ways{
        {link - side, link + side}, {link, middleOf(u"après"_s)}, {middleOf(u"Avant"_s), link}};
    for (const auto &[from, to] : ways) {
        QTest::mousePress(viewport(), Qt::LeftButton, {}, from);
        QTest::mouseMove(viewport(), middleOf(u"après"_s));
        QTest::mouseMove(viewport(), to);
        QTest::mouseRelease(viewport(), Qt::LeftButton, {}, to);
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

// --- With the keyboard ---

namespace {

const QStringList kThreeLinks{
    u"<a href='https://un.test/'>un</a> et <a href='setup.exe'>fichier</a>"_s,
    u"<table><tr><td><a href='http://deux.test/'>de<b>ux</b></a></td></tr></table>"_s,
    u"<a href='https://trois.test/'>trois</a><a href='https://quatre.test/'>quatre</a> fin"_s};

} // namespace

void TestNewsLinks::tabGoesFromLinkToLink()
{
    showItems(kThreeLinks);
    auto *const news = m_launcher->news();
    QCOMPARE(QApplication::focusWidget(), news);
    for (const QString &link : {u"un"_s, u"deux"_s, u"trois"_s, u"quatre"_s}) {
        press(Qt::Key_Tab);
        QCOMPARE(selected(), link);
    }
    for (const QString &link : {u"trois"_s, u"deux"_s, u"un"_s}) {
        press(Qt::Key_Backtab, Qt::ShiftModifier);
        QCOMPARE(selected(), link);
    }
    QCOMPARE(QApplication::focusWidget(), news);

    // And out of them at both ends.
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    QCOMPARE(QApplication::focusWidget(), m_launcher->button(u"Discord"_s));
    QCOMPARE(selected(), QString());
    press(Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), news);
    QCOMPARE(selected(), QString());
    for (int i = 0; i < 4; ++i)
        press(Qt::Key_Tab);
    QCOMPARE(selected(), u"quatre"_s);
    press(Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), m_launcher->button(u"Paramètres"_s));
    QCOMPARE(selected(), QString());

    // The last one first for whoever comes back.
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    QCOMPARE(QApplication::focusWidget(), news);
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    QCOMPARE(selected(), u"quatre"_s);
    press(Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), m_launcher->button(u"Paramètres"_s));
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    press(Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), m_launcher->button(u"Paramètres"_s));
    QVERIFY(m_opened.isEmpty());
}

void TestNewsLinks::enterOpensTheLinkThatTabHasComeTo()
{
    showItems(kThreeLinks);
    press(Qt::Key_Tab);
    press(Qt::Key_Return);
    press(Qt::Key_Tab);
    press(Qt::Key_Enter, Qt::KeypadModifier);
    QCOMPARE(m_opened, QList<QUrl>({QUrl(u"https://un.test/"_s), QUrl(u"http://deux.test/"_s)}));
}

void TestNewsLinks::enterOpensNothingElse()
{
    showItems(kThreeLinks);
    press(Qt::Key_Return);
    QVERIFY(m_opened.isEmpty());
    press(Qt::Key_Tab);
    QCOMPARE(selected(), u"un"_s);
    // The mouse has selected something else since.
    QTest::mouseClick(viewport(), Qt::LeftButton, {}, middleOf(u"fichier"_s));
    press(Qt::Key_Return);
    QVERIFY(m_opened.isEmpty());
}

void TestNewsLinks::theLinkIsKeptForWhoComesBackFromTheBrowser()
{
    showItems(kThreeLinks);
    press(Qt::Key_Tab);
    QWidget browser;
    browser.show();
    browser.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&browser));
    browser.hide();
    m_launcher->window()->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_launcher->window()));
    QCOMPARE(selected(), u"un"_s);
    press(Qt::Key_Tab);
    QCOMPARE(selected(), u"deux"_s);
}

void TestNewsLinks::otherNewsHaveOtherLinks()
{
    showItems(kThreeLinks);
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    showItems({u"<a href='https://cinq.test/'>cinq</a>"_s});
    press(Qt::Key_Return);
    QVERIFY(m_opened.isEmpty());
    press(Qt::Key_Tab);
    QCOMPARE(selected(), u"cinq"_s);
    press(Qt::Key_Return);
    QCOMPARE(m_opened, QList<QUrl>{QUrl(u"https://cinq.test/"_s)});
}

VEYRA_WIDGET_TEST_MAIN(TestNewsLinks)
#include "TestNewsLinks.moc"
