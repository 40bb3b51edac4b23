#include "app/SingleInstance.h"
#include "tests/support/TestEnvironment.h"

#include <QApplication>
#include <QDialog>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <memory>

/// What a second start brings to the front.
class TestSingleInstance : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void theWindowComesToTheFront();
    void theDialogOverItComesToTheFront();

private:
    /// True if that start left because of this one.
    bool startAgain();

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<SingleInstance> m_first;
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<QWidget> m_other;
};

void TestSingleInstance::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_first = std::make_unique<SingleInstance>(m_folder->path(), m_folder->path());
    QVERIFY(!m_first->isShownByAnother());
    m_window = std::make_unique<QWidget>();
    m_first->setWindow(m_window.get());
    m_window->show();
    m_other = std::make_unique<QWidget>();
    m_other->show();
    m_other->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_other.get()));
}

void TestSingleInstance::cleanup()
{
    m_first.reset();
    m_window.reset();
    m_other.reset();
}

bool TestSingleInstance::startAgain()
{
    bool leaves = false;
    const std::unique_ptr<QThread> start(QThread::create([this, &leaves] {
        SingleInstance second(m_folder->path(), m_folder->path());
        leaves = second.isShownByAnother();
    }));
    start->start();
    constexpr int kPatience = 30'000; // longer than that of a start
    const bool ended = QTest::qWaitFor([&start] { return start->isFinished(); }, kPatience);
    start->wait();
    return ended && leaves;
}

void TestSingleInstance::theWindowComesToTheFront()
{
    m_window->showMinimized();
    QVERIFY(startAgain());
    QTRY_COMPARE(QApplication::activeWindow(), m_window.get());
    QVERIFY(!m_window->isMinimized());
}

void TestSingleInstance::theDialogOverItComesToTheFront()
{
    QDialog dialog(m_window.get());
    dialog.setWindowModality(Qt::WindowModal);
    dialog.show();
    m_other->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_other.get()));
    QVERIFY(startAgain());
    QTRY_COMPARE(QApplication::activeWindow(), &dialog);
}

VEYRA_WIDGET_TEST_MAIN(TestSingleInstance)
#include "TestSingleInstance.moc"
