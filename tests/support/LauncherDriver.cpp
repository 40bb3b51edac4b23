#include "app/MainWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QIcon>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMessageBox>
#include <QMetaEnum>
#include <QNetworkProxy>
#include <QPalette>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QStyle>
#include <QTcpSocket>
#include <QTest>
#include <QTextEdit>
#include <QThread>
#include <QThreadPool>
#include <QToolTip>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr unsigned long kLongerThanAnyTest = 600; // seconds

MainWindow *mainWindow()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *window = qobject_cast<MainWindow *>(widget))
            return window;
    }
    return nullptr;
}

QWidget *toolTip()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->inherits("QTipLabel") && widget->isVisible())
            return widget;
    }
    return nullptr;
}

QString shortName(QPalette::ColorRole role)
{
    return QString::fromLatin1(QMetaEnum::fromType<QPalette::ColorRole>().valueToKey(role));
}

QJsonObject describePalette()
{
    const QPalette palette = QApplication::palette();
    const QPalette untouched;
    QJsonObject result;
    for (int role = 0; role < QPalette::NColorRoles; ++role) {
        const auto colorRole = QPalette::ColorRole(role);
        QStringList groups;
        for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
            const QBrush &brush = palette.brush(group, colorRole);
            groups.append(brush.color().name() +
                          (brush.style() == Qt::SolidPattern ? QString() : u" not solid"_s));
        }
        result[shortName(colorRole)] = groups.join(u' ');
    }
    return result;
}

QJsonObject describeIdentity()
{
    const QImage icon = QApplication::windowIcon().pixmap(435, 397).toImage();
    return {
        {u"name"_s, QApplication::applicationName()},
        {u"version"_s, QApplication::applicationVersion()},
        {u"organisation"_s, QApplication::organizationName()},
        {u"style"_s, QApplication::style()->name()},
        {u"iconIsTheLogo"_s, icon == QPixmap(u":/images/logo.png"_s).toImage() &&
                                 icon == mainWindow()->windowIcon().pixmap(435, 397).toImage()},
        {u"windowHasParent"_s, mainWindow()->parent() != nullptr},
    };
}

QJsonObject describeWindow(const MainWindow *window)
{
    const auto text = [window](const QString &name) {
        return window->findChild<QLabel *>(name)->text();
    };
    const auto *bar = window->findChild<QProgressBar *>(u"progressBar"_s);
    const auto *play = window->findChild<QPushButton *>(u"playButton"_s);
    QJsonObject state{
        {u"label"_s, text(u"progressLabel"_s)},
        {u"labelStyle"_s, window->findChild<QLabel *>(u"progressLabel"_s)->styleSheet()},
        {u"maximum"_s, bar->maximum()},
        {u"value"_s, bar->value()},
        {u"play"_s, play->text()},
        {u"playEnabled"_s, play->isEnabled()},
        {u"status"_s, text(u"statusLabel"_s)},
        {u"players"_s, text(u"playersLabel"_s)},
        {u"news"_s, window->findChild<QTextEdit *>(u"newsWidget"_s)->toPlainText()},
        {u"visible"_s, window->isVisible()},
        {u"minimized"_s, window->isMinimized()},
        {u"active"_s, QApplication::activeWindow() != nullptr},
        {u"windowId"_s, qint64(window->winId())},
    };
    if (const QWidget *modal = QApplication::activeModalWidget())
        state[u"modalTitle"_s] = modal->windowTitle();
    if (const auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget()))
        state[u"boxText"_s] = box->text();
    return state;
}

QPoint pointOf(const QJsonObject &details)
{
    return {details["x"_L1].toInt(), details["y"_L1].toInt()};
}

} // namespace

/// Lives inside the launcher of DrivenLauncher. Sends every request to the test's server, and does
/// what it is told over a connection, one JSON object in a line for each command and each answer:
///   state                 what the main window shows
///   identity, palette     what the application was set up with
///   toolTip               shows a tool tip over the window
///   grab file, toolTip    writes a picture of the window, or of its tool tip
///   select                selects all of the news
///   click button          clicks the button of the main window with this object name
///   answer button         clicks the standard button (a number) of the open message box
///   closeBox, escapeBox   closes the open message box, or presses Escape in it
///   close                 closes the main window
///   minimize              minimises the main window
///   exit code             ends the event loop with this code
///   blockLoop             keeps the event loop from going on for longer than any test lasts
///   blockPool             occupies the thread pool for longer than any test lasts
class LauncherDriver : public QObject
{
    Q_OBJECT

public:
    explicit LauncherDriver(QObject *parent);

private:
    void readCommands();
    QJsonObject execute(const QString &command, const QJsonObject &details);

    QTcpSocket m_socket;
};

LauncherDriver::LauncherDriver(QObject *parent)
    : QObject(parent)
{
    m_socket.setProxy(QNetworkProxy::NoProxy);
    connect(&m_socket, &QTcpSocket::readyRead, this, &LauncherDriver::readCommands);
    m_socket.connectToHost(u"127.0.0.1"_s,
                           quint16(qEnvironmentVariableIntValue("VEYRA_TEST_CONTROL_PORT")));
}

void LauncherDriver::readCommands()
{
    // A command may open a box and come back only when that is closed: the commands that follow are
    // read by then, in the box's own event loop. Hence one each time, and the answer before it.
    while (m_socket.canReadLine()) {
        const QJsonObject message = QJsonDocument::fromJson(m_socket.readLine()).object();
        const QString command = message["command"_L1].toString();
        if (command == u"click"_s || command == u"close"_s || command == u"answer"_s ||
            command == u"closeBox"_s || command == u"escapeBox"_s || command == u"blockLoop"_s) {
            m_socket.write("{}\n");
            m_socket.flush();
            QMetaObject::invokeMethod(
                this, [this, command, message] { execute(command, message); },
                Qt::QueuedConnection);
            continue;
        }
        const QJsonObject answer = execute(command, message);
        m_socket.write(QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n');
        m_socket.flush();
    }
}

QJsonObject LauncherDriver::execute(const QString &command, const QJsonObject &details)
{
    MainWindow *window = mainWindow();
    if (!window)
        return {};
    auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());

    if (command == u"state"_s)
        return describeWindow(window);
    if (command == u"identity"_s)
        return describeIdentity();
    if (command == u"palette"_s)
        return describePalette();

    if (command == u"toolTip"_s) {
        // At once, where the system would have it fade in.
        for (const Qt::UIEffect effect : {Qt::UI_AnimateTooltip, Qt::UI_FadeTooltip})
            QApplication::setEffectEnabled(effect, false);
        QToolTip::showText(window->mapToGlobal(pointOf(details)), u"Veyra"_s, window);
    } else if (command == u"select"_s)
        window->findChild<QTextEdit *>(u"newsWidget"_s)->selectAll();
    else if (command == u"grab"_s) {
        QWidget *widget = details["toolTip"_L1].toBool() ? toolTip() : window;
        return {{u"saved"_s, widget && widget->grab().save(details["file"_L1].toString())}};
    } else if (command == u"click"_s) {
        const auto name = details["button"_L1].toString();
        QTest::mouseClick(window->findChild<QAbstractButton *>(name), Qt::LeftButton);
    } else if (command == u"answer"_s && box) {
        const auto button = QMessageBox::StandardButton(details["button"_L1].toInt());
        QTest::mouseClick(box->button(button), Qt::LeftButton);
    } else if (command == u"closeBox"_s && box)
        box->close();
    else if (command == u"escapeBox"_s && box)
        QTest::keyClick(box, Qt::Key_Escape);
    else if (command == u"close"_s)
        window->close();
    else if (command == u"minimize"_s)
        window->showMinimized();
    else if (command == u"exit"_s)
        QCoreApplication::exit(details["code"_L1].toInt());
    else if (command == u"blockLoop"_s)
        QThread::sleep(kLongerThanAnyTest);
    else if (command == u"blockPool"_s)
        QThreadPool::globalInstance()->start([] { QThread::sleep(kLongerThanAnyTest); });
    return {};
}

static void startDriver()
{
#ifdef Q_OS_WIN
    // The settings' folder is not to be had from the environment there.
    QStandardPaths::setTestModeEnabled(true);
#endif
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, u"127.0.0.1"_s,
                      quint16(qEnvironmentVariableIntValue("VEYRA_TEST_PROXY_PORT"))));
    // The application object is half built at this point; the event loop finds it complete.
    auto *driver = new LauncherDriver(qApp);
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, driver, &QObject::deleteLater);
}

Q_COREAPP_STARTUP_FUNCTION(startDriver)

#include "LauncherDriver.moc"
