#include "app/Identity.h"
#include "tests/support/TestEnvironment.h"
#include "ui/ScrollingMessageBox.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>

#include <ctime>
#include <functional>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kYesAndNo = QMessageBox::Yes | QMessageBox::No;
constexpr double kSoon = 2; // seconds of processor time, which a busy machine does not lengthen

QString changelog(int lines)
{
    QString text = u"Une nouvelle version du launcher est disponible !\n\nNouveautés:"_s;
    for (int i = 1; i <= lines; ++i)
        text += u"\n- Correction n° %1 de la liste"_s.arg(i);
    return text + u"\n\nVoulez-vous mettre à jour maintenant ?"_s;
}

const QString kShort = u"Dofus.exe introuvable:\nC:/Jeux/Dofus.exe"_s;
const QString kLong = changelog(100);

void hold(QWidget *widget, Qt::Key key)
{
    for (int i = 0; i < 50; ++i)
        QTest::simulateEvent(widget, true, key, Qt::NoModifier, u"\r"_s, true);
}

} // namespace

/// Whatever a box has to say, its buttons can be reached and its text can be read.
class TestScrollingMessageBox : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void staysOnTheScreen_data();
    void staysOnTheScreen();
    void aShortTextStaysQtsOwnLabel();
    void aTextThatFitsOnceItIsBrokenNeedsNoScrolling();
    void tagsAreText();
    void enterReadsOnAndAnswersAtTheEnd_data();
    void enterReadsOnAndAnswersAtTheEnd();
    void enterAnswersOnceTheMouseHasScrolledToTheEnd();
    void aHeldEnterNeitherReadsNorAnswers();
    void aButtonCanBeClickedOrPressedAtAnyTime_data();
    void aButtonCanBeClickedOrPressedAtAnyTime();
    void tabGoesFromTheTextToTheButtons();

private:
    void open(const QString &text, QMessageBox::StandardButtons buttons = kYesAndNo);
    QTextEdit *view() const { return m_box->findChild<QTextEdit *>(); }
    QScrollBar *bar() const { return view()->verticalScrollBar(); }

    QFont m_font;
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<ScrollingMessageBox> m_box;
};

void TestScrollingMessageBox::initTestCase()
{
    Identity::apply();
    m_font = QApplication::font();
}

void TestScrollingMessageBox::init()
{
    m_window = std::make_unique<QWidget>();
    m_window->resize(m_window->screen()->availableSize().boundedTo(QSize(1000, 700)));
    m_window->show();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void TestScrollingMessageBox::cleanup()
{
    m_box.reset();
    m_window.reset();
    QApplication::setFont(m_font);
}

void TestScrollingMessageBox::open(const QString &text, QMessageBox::StandardButtons buttons)
{
    m_box = std::make_unique<ScrollingMessageBox>(QMessageBox::Question, u"Titre"_s, text, buttons,
                                                  m_window.get());
    m_box->open();
    QTRY_COMPARE(QApplication::activeWindow(), m_box.get());
}

void TestScrollingMessageBox::staysOnTheScreen_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("pointSize");

    const QString unpacker =
        u"Erreur d'extraction: "_s +
        u"C:\\Users\\joueur\\AppData\\Local\\Temp\\VeyraClient\\data\\maps\\"_s.repeated(30);
    QTest::newRow("a changelog of forty lines") << changelog(40) << 10;
    QTest::newRow("three lines in a large font")
        << u"Dofus.exe introuvable:\nC:/Jeux/Veyra/Client/Dofus.exe\n\nConfigurez le chemin."_s
        << 60;
    QTest::newRow("a changelog in a large font") << changelog(40) << 30;
    QTest::newRow("an unpacker's error without blanks") << unpacker << 10;
    QTest::newRow("an endless word") << QString(300, u'x') << 10;
    QTest::newRow("an endless word a little wider than usual") << QString(110, u'x') << 10;
    QTest::newRow("an endless word of 20,000 characters") << QString(20'000, u'W') << 10;
    QTest::newRow("20,000 characters of text") << u"une erreur "_s.repeated(1'820) << 10;
    QTest::newRow("20,000 lines") << QString(20'000, u'\n') << 10;
    QTest::newRow("20,000 short lines") << u"a\n"_s.repeated(10'000) << 10;
}

void TestScrollingMessageBox::staysOnTheScreen()
{
    QFETCH(const QString, text);
    QFETCH(const int, pointSize);
    QFont font = m_font;
    font.setPointSize(pointSize);
    QApplication::setFont(font);

    const std::clock_t start = std::clock();
    open(text);
    m_box->grab();
    const double elapsed = double(std::clock() - start) / CLOCKS_PER_SEC;
    QVERIFY2(elapsed < kSoon, qPrintable(u"%1 s"_s.arg(elapsed)));

    QCOMPARE(m_box->text(), text);
    const QRect screen = m_box->screen()->availableGeometry();
    QVERIFY(screen.contains(m_box->frameGeometry()));
    QVERIFY(m_box->frameGeometry().width() <= screen.width() * 0.8);
    QVERIFY(m_box->frameGeometry().height() <= screen.height() * 0.8);
    for (const QAbstractButton *button : m_box->buttons()) {
        QVERIFY(button->isVisible());
        QVERIFY(
            m_box->rect().contains(QRect(button->mapTo(m_box.get(), QPoint()), button->size())));
    }

    if (!view()) { // it all fits, then
        const auto *label = m_box->findChild<QLabel *>(u"qt_msgbox_label"_s);
        QVERIFY(label->isVisible());
        QVERIFY(label->width() >= label->minimumSizeHint().width());
        return;
    }
    QCOMPARE(view()->toPlainText(), text);
    QVERIFY(view()->isVisible());
    QVERIFY(m_box->rect().contains(view()->geometry()));
    QCOMPARE(view()->horizontalScrollBar()->maximum(), 0);
    QVERIFY(view()->viewport()->height() >= view()->fontMetrics().height());
    for (const QAbstractButton *button : m_box->buttons())
        QVERIFY(view()->geometry().bottom() < button->mapTo(m_box.get(), QPoint()).y());
}

void TestScrollingMessageBox::aShortTextStaysQtsOwnLabel()
{
    open(kShort);
    QVERIFY(!view());
    QVERIFY(m_box->findChild<QLabel *>(u"qt_msgbox_label"_s)->isVisible());
    QSignalSpy finished(m_box.get(), &QMessageBox::finished);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), int(QMessageBox::Yes));
}

void TestScrollingMessageBox::aTextThatFitsOnceItIsBrokenNeedsNoScrolling()
{
    const int width = m_window->screen()->availableSize().width();
    const QFontMetrics metrics(m_font);
    open(QString(2 * width / metrics.horizontalAdvance(u'x'), u'x'));
    QVERIFY(view());
    QCOMPARE(bar()->maximum(), 0);
    QSignalSpy finished(m_box.get(), &QMessageBox::finished);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QCOMPARE(finished.count(), 1);
}

void TestScrollingMessageBox::tagsAreText()
{
    const QString text = u"<img src='/nowhere.png'><b>gras</b>\n"_s.repeated(100);
    open(text);
    QCOMPARE(m_box->textFormat(), Qt::PlainText);
    QCOMPARE(m_box->text(), text);
    QCOMPARE(view()->toPlainText(), text);
}

void TestScrollingMessageBox::enterReadsOnAndAnswersAtTheEnd_data()
{
    QTest::addColumn<Qt::Key>("key");
    QTest::addColumn<QMessageBox::StandardButton>("focused");
    QTest::addColumn<QMessageBox::StandardButton>("answer");
    for (const auto &[name, key] :
         {std::pair{"Enter", Qt::Key_Return}, std::pair{"the keypad's Enter", Qt::Key_Enter}}) {
        QTest::addRow("%s in the text", name) << key << QMessageBox::NoButton << QMessageBox::Yes;
        QTest::addRow("%s on the first button", name)
            << key << QMessageBox::Yes << QMessageBox::Yes;
        QTest::addRow("%s on the other button", name) << key << QMessageBox::No << QMessageBox::No;
    }
}

void TestScrollingMessageBox::enterReadsOnAndAnswersAtTheEnd()
{
    QFETCH(const Qt::Key, key);
    QFETCH(const QMessageBox::StandardButton, focused);
    open(kLong);
    QCOMPARE(QApplication::focusWidget(), view());
    if (focused != QMessageBox::NoButton)
        m_box->button(focused)->setFocus();

    QSignalSpy finished(m_box.get(), &QMessageBox::finished);
    int pages = 0;
    while (bar()->value() < bar()->maximum()) {
        const int before = bar()->value();
        QTest::keyClick(QApplication::focusWidget(), key);
        QVERIFY(bar()->value() > before);
        QVERIFY(bar()->value() - before <= view()->viewport()->height()); // skips nothing
        QCOMPARE(finished.count(), 0);
        ++pages;
    }
    QVERIFY(pages >= 2);

    bar()->setValue(0); // the end was seen all the same
    QTest::keyClick(QApplication::focusWidget(), key);
    QCOMPARE(finished.count(), 1);
    QFETCH(const QMessageBox::StandardButton, answer);
    QCOMPARE(finished.first().first().toInt(), int(answer));
}

void TestScrollingMessageBox::enterAnswersOnceTheMouseHasScrolledToTheEnd()
{
    open(kLong);
    QSignalSpy finished(m_box.get(), &QMessageBox::finished);
    bar()->setValue(bar()->maximum());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QCOMPARE(finished.count(), 1);
}

void TestScrollingMessageBox::aHeldEnterNeitherReadsNorAnswers()
{
    open(kLong);
    QSignalSpy finished(m_box.get(), &QMessageBox::finished);
    hold(view(), Qt::Key_Return);
    QCOMPARE(bar()->value(), 0);
    hold(m_box->button(QMessageBox::Yes), Qt::Key_Return);
    QCOMPARE(bar()->value(), 0);
    bar()->setValue(bar()->maximum());
    hold(view(), Qt::Key_Return);
    hold(m_box->button(QMessageBox::Yes), Qt::Key_Return);
    QCOMPARE(finished.count(), 0);
}

void TestScrollingMessageBox::aButtonCanBeClickedOrPressedAtAnyTime_data()
{
    using Action = std::function<void(QMessageBox &)>;
    QTest::addColumn<Action>("action");
    QTest::newRow("with the mouse") << Action(
        [](QMessageBox &box) { QTest::mouseClick(box.button(QMessageBox::No), Qt::LeftButton); });
    QTest::newRow("with Space") << Action([](QMessageBox &box) {
        box.button(QMessageBox::No)->setFocus();
        QTest::keyClick(box.button(QMessageBox::No), Qt::Key_Space);
    });
    QTest::newRow("with Escape") << Action(
        [](QMessageBox &) { QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape); });
}

void TestScrollingMessageBox::aButtonCanBeClickedOrPressedAtAnyTime()
{
    QFETCH(const std::function<void(QMessageBox &)>, action);
    open(kLong);
    QSignalSpy finished(m_box.get(), &QMessageBox::finished);
    action(*m_box);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), int(QMessageBox::No));
}

void TestScrollingMessageBox::tabGoesFromTheTextToTheButtons()
{
    open(kLong);
    for (QWidget *expected : QList<QWidget *>{view(), m_box->button(QMessageBox::Yes),
                                              m_box->button(QMessageBox::No), view()}) {
        QCOMPARE(QApplication::focusWidget(), expected);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
}

VEYRA_WIDGET_TEST_MAIN(TestScrollingMessageBox)
#include "TestScrollingMessageBox.moc"
