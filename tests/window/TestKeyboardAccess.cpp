#include "app/Identity.h"
#include "config/Config.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QAccessible>
#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QFocusFrame>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

#include <functional>
#include <memory>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Does something once a modal dialog has the keyboard focus.
class OnceInDialog
{
public:
    explicit OnceInDialog(std::function<void(QDialog *)> action)
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this, action = std::move(action)] {
            auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
            if (!dialog || !dialog->isAncestorOf(QApplication::focusWidget()))
                return;
            m_timer.stop();
            action(dialog);
        });
        m_timer.start(10);
    }

private:
    QTimer m_timer;
};

} // namespace

/// What a person without a mouse needs.
class TestKeyboardAccess : public QObject
{
    Q_OBJECT

public slots:
    void openUrl(const QUrl &url) { m_opened.append(url); }

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup() { m_launcher.reset(); }
    void tabGoesFromTopToBottom();
    void tabSkipsTheDisabledPlayButton();
    void theFirstFocusIsOnTheNews();
    void keysPressButtons_data();
    void keysPressButtons();
    void enterStartsNothingWhileThePlayButtonIsDisabled();
    void aHeldEnterPressesOnce();
    void aRingShowsTheKeyboardFocus();
    void theRingOutlivesADialog();
    void noRingAfterAClick();
    void aClickTakesTheRingAway();
    void aModifierAloneBringsNoRing();
    void aBoxHasARingOnlyForTheKeyboard_data();
    void aBoxHasARingOnlyForTheKeyboard();
    void theRingIsWhole_data();
    void theRingIsWhole();
    void accessibleNames_data();
    void accessibleNames();
    void theSettingsFieldIsNamedByItsCaption();

private:
    QPushButton *button(const QString &text) const { return m_launcher->button(text); }
    QFocusFrame *ring() const
    {
        return QApplication::focusWidget()->window()->findChild<QFocusFrame *>();
    }

    std::unique_ptr<LauncherFixture> m_launcher;
    QList<QUrl> m_opened;
};

void TestKeyboardAccess::initTestCase()
{
    Identity::apply();
    QDesktopServices::setUrlHandler(u"http"_s, this, "openUrl");
    QDesktopServices::setUrlHandler(u"https"_s, this, "openUrl");
}

void TestKeyboardAccess::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(u"http"_s);
    QDesktopServices::unsetUrlHandler(u"https"_s);
}

void TestKeyboardAccess::init()
{
    m_opened.clear();
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->open();
    QVERIFY(QTest::qWaitForWindowActive(m_launcher->window()));
}

void TestKeyboardAccess::tabGoesFromTopToBottom()
{
    m_launcher->playButton()->setEnabled(true);
    button(u"Site Web"_s)->setFocus();
    const QList<QWidget *> order{button(u"Site Web"_s), button(u"Discord"_s), m_launcher->news(),
                                 button(u"Paramètres"_s), m_launcher->playButton()};
    for (QWidget *expected : order) {
        QCOMPARE(QApplication::focusWidget(), expected);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    QCOMPARE(QApplication::focusWidget(), order.first());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
    QCOMPARE(QApplication::focusWidget(), order.last());
}

void TestKeyboardAccess::tabSkipsTheDisabledPlayButton()
{
    button(u"Paramètres"_s)->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), button(u"Site Web"_s));
}

void TestKeyboardAccess::theFirstFocusIsOnTheNews()
{
    QCOMPARE(QApplication::focusWidget(), m_launcher->news());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QVERIFY(m_opened.isEmpty());
    QVERIFY(!QApplication::activeModalWidget());
}

void TestKeyboardAccess::keysPressButtons_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Qt::Key>("key");
    for (const QString &text : {u"Site Web"_s, u"Discord"_s, u"Paramètres"_s, u"JOUER"_s}) {
        for (const auto &[name, key] :
             {std::pair{"Enter", Qt::Key_Return}, std::pair{"the keypad's Enter", Qt::Key_Enter},
              std::pair{"Space", Qt::Key_Space}}) {
            QTest::addRow("%s presses %s", name, qPrintable(text)) << text << key;
        }
    }
}

void TestKeyboardAccess::keysPressButtons()
{
    QFETCH(const QString, text);
    QFETCH(const Qt::Key, key);
    QPushButton *target = button(text);
    target->setEnabled(true);
    target->setFocus();
    QSignalSpy clicked(target, &QPushButton::clicked);

    // Settings and a missing game open a modal window: close what appears.
    BoxAnswers answers;
    answers.click(QMessageBox::Ok);
    QTimer closer;
    connect(&closer, &QTimer::timeout, this, [] {
        if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
            dialog && !qobject_cast<QMessageBox *>(dialog)) {
            dialog->reject();
        }
    });
    closer.start(10);
    Config::instance().setDofusPath(u"/nowhere"_s);
    QTest::keyClick(target, key);
    QCOMPARE(clicked.count(), 1);
}

void TestKeyboardAccess::enterStartsNothingWhileThePlayButtonIsDisabled()
{
    auto *play = m_launcher->playButton();
    QSignalSpy clicked(play, &QPushButton::clicked);
    QVERIFY(!play->isEnabled());
    QTest::keyClick(play, Qt::Key_Return);
    QCOMPARE(clicked.count(), 0);
}

void TestKeyboardAccess::aRingShowsTheKeyboardFocus()
{
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QPushButton *settings = button(u"Paramètres"_s);
    QCOMPARE(QApplication::focusWidget(), settings);
    QVERIFY(ring());
    QCOMPARE(ring()->widget(), settings);
    QTRY_VERIFY(ring()->isVisible());
    QVERIFY(ring()->geometry().contains(settings->geometry()));

    // Seen on the pixels: the accent colour in the middle of the ring's left edge.
    const QImage grabbed = m_launcher->window()->grab().toImage();
    const qreal ratio = grabbed.devicePixelRatio();
    const QPoint edge = ring()->mapTo(m_launcher->window(), QPoint(1, ring()->height() / 2));
    QCOMPARE(grabbed.pixelColor((QPointF(edge) * ratio).toPoint()), QColor(0x8b, 0xc3, 0x4a));
}

void TestKeyboardAccess::aHeldEnterPressesOnce()
{
    QPushButton *website = button(u"Site Web"_s);
    website->setFocus();
    QTest::keyPress(website, Qt::Key_Return);
    for (int i = 0; i < 5; ++i)
        QTest::simulateEvent(website, true, Qt::Key_Return, Qt::NoModifier, u"\r"_s, true);
    QTest::keyRelease(website, Qt::Key_Return);
    QCOMPARE(m_opened.size(), 1);
}

void TestKeyboardAccess::theRingOutlivesADialog()
{
    bool ringInDialog = false;
    const OnceInDialog once([&](QDialog *dialog) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab); // from the field to "Parcourir"
        ringInDialog = ring() && ring()->isVisible();
        QTest::keyClick(dialog, Qt::Key_Escape);
    });
    QTest::mouseClick(button(u"Paramètres"_s), Qt::LeftButton);
    QVERIFY(ringInDialog);

    m_launcher->window()->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_launcher->window()));
    button(u"Discord"_s)->setFocus();
    QTest::keyClick(button(u"Discord"_s), Qt::Key_Tab);
    QVERIFY(ring());
    QTRY_VERIFY(ring()->isVisible());
    QCOMPARE(ring()->widget(), QApplication::focusWidget());
}

void TestKeyboardAccess::noRingAfterAClick()
{
    // The keyboard has been elsewhere before, so that the click moves the focus.
    button(u"Discord"_s)->setFocus();
    QTest::keyClick(button(u"Discord"_s), Qt::Key_Tab);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), button(u"Paramètres"_s));
    QTRY_VERIFY(ring() && ring()->isVisible());

    auto *news = m_launcher->news();
    QTest::mouseClick(news->viewport(), Qt::LeftButton);
    QCOMPARE(QApplication::focusWidget(), news);
    QVERIFY(!ring()->isVisible());
}

void TestKeyboardAccess::aClickTakesTheRingAway()
{
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QTRY_VERIFY(ring() && ring()->isVisible());
    QTest::mouseClick(m_launcher->label(u"statusLabel"_s), Qt::LeftButton); // takes no focus
    QVERIFY(!ring()->isVisible());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QTRY_VERIFY(ring()->isVisible());
}

void TestKeyboardAccess::aModifierAloneBringsNoRing()
{
    for (const Qt::Key key : {Qt::Key_Shift, Qt::Key_Control, Qt::Key_Alt, Qt::Key_Meta})
        QTest::keyClick(QApplication::focusWidget(), key);
    button(u"Discord"_s)->setFocus(Qt::TabFocusReason);
    QVERIFY(!ring());
}

void TestKeyboardAccess::aBoxHasARingOnlyForTheKeyboard_data()
{
    using Opening = std::function<void(QPushButton *)>;
    QTest::addColumn<Opening>("opening");
    QTest::addColumn<bool>("ringed");
    QTest::newRow("opened by a click")
        << Opening([](QPushButton *play) { QTest::mouseClick(play, Qt::LeftButton); }) << false;
    QTest::newRow("opened by itself") << Opening([](QPushButton *play) { play->click(); }) << false;
    QTest::newRow("opened by a click after the keyboard moved the focus")
        << Opening([](QPushButton *play) {
               QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
               QTest::mouseClick(play, Qt::LeftButton);
           })
        << false;
    QTest::newRow("opened by a key") << Opening([](QPushButton *play) {
        play->setFocus();
        QTest::keyClick(play, Qt::Key_Return);
    }) << true;
}

void TestKeyboardAccess::aBoxHasARingOnlyForTheKeyboard()
{
    QFETCH(const std::function<void(QPushButton *)>, opening);
    Config::instance().setDofusPath(u"/nowhere"_s);
    m_launcher->playButton()->setEnabled(true);

    const auto ringOf = [](const QWidget *window) {
        const auto *frame = window->findChild<QFocusFrame *>();
        return frame && frame->isVisible();
    };
    bool ringed = false;
    BoxAnswers answers;
    answers.until([] {
        const QWidget *focused = QApplication::focusWidget();
        return focused && focused->window() == QApplication::activeModalWidget();
    });
    answers.meanwhile([&] { ringed = ringOf(QApplication::activeModalWidget()); });
    answers.click(QMessageBox::Ok);
    opening(m_launcher->playButton());
    QCOMPARE(answers.seen().size(), 1);
    QTEST(ringed, "ringed");

    // Clicking the box away leaves no ring behind in the window.
    m_launcher->window()->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_launcher->window()));
    QVERIFY(!ringOf(m_launcher->window()));
}

void TestKeyboardAccess::theRingIsWhole_data()
{
    QTest::addColumn<QString>("opener");
    QTest::newRow("in a message box") << u"JOUER"_s;
    QTest::newRow("in the settings dialog") << u"Paramètres"_s;
}

void TestKeyboardAccess::theRingIsWhole()
{
    QFETCH(const QString, opener);
    Config::instance().setDofusPath(u"/nowhere"_s);
    m_launcher->playButton()->setEnabled(true);

    int ringed = 0;
    QStringList cut;
    const OnceInDialog once([&](QDialog *dialog) {
        for (int i = 0; i < 4; ++i) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            const auto *button = qobject_cast<QPushButton *>(QApplication::focusWidget());
            if (!button)
                continue;
            ++ringed;
            const QRect around(button->mapTo(dialog, QPoint(-4, -4)), button->size() + QSize(8, 8));
            if (ring()->parentWidget() != dialog || ring()->geometry() != around ||
                !dialog->rect().contains(around)) {
                cut.append(button->text());
            }
        }
        dialog->reject();
    });
    m_launcher->button(opener)->click();
    QVERIFY(ringed >= 3);
    QCOMPARE(cut, QStringList());
}

void TestKeyboardAccess::accessibleNames_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::newRow("the website button") << u"Site Web"_s << u"Ouvrir le site web"_s;
    QTest::newRow("the chat button") << u"Discord"_s << u"Ouvrir le salon Discord"_s;
    QTest::newRow("the play button") << u"JOUER"_s << u"JOUER"_s;
    QTest::newRow("the progress bar") << QString() << u"Progression"_s;
}

void TestKeyboardAccess::accessibleNames()
{
    QFETCH(const QString, text);
    QWidget *widget =
        text.isEmpty() ? static_cast<QWidget *>(m_launcher->progressBar()) : button(text);
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(widget);
    QVERIFY(interface);
    QTEST(interface->text(QAccessible::Name), "name");
}

void TestKeyboardAccess::theSettingsFieldIsNamedByItsCaption()
{
    QString name;
    const OnceInDialog once([&name](QDialog *dialog) {
        name = QAccessible::queryAccessibleInterface(dialog->findChild<QLineEdit *>())
                   ->text(QAccessible::Name);
        dialog->reject();
    });
    QTest::mouseClick(button(u"Paramètres"_s), Qt::LeftButton);
    QCOMPARE(name, u"Chemin d'installation de Dofus:"_s);
}

VEYRA_WIDGET_TEST_MAIN(TestKeyboardAccess)
#include "TestKeyboardAccess.moc"
