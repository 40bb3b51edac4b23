#pragma once

#include "app/MainWindow.h"
#include "tests/support/HttpServer.h"

#include <QMetaObject>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;
class QTextEdit;

/// A main window in a world of its own: a scripted server that gets all of its requests, and an
/// empty game folder. Until a test says otherwise the server answers nothing, so that the start-up
/// chain stands still behind what the test does. One at a time: its end takes the proxy away.
class LauncherFixture
{
public:
    LauncherFixture();
    ~LauncherFixture();

    /// Builds the window without showing it.
    void build();
    /// Builds it and shows it.
    void open();
    void close();

    /// Puts the file there that marks an installed client.
    void installClient();
    QString gameFolder() const { return m_folder.path(); }

    MainWindow *window() const { return m_window.get(); }
    template <typename Worker> Worker *worker() const;
    /// The widget of this object name.
    template <typename Widget> Widget *child(const QString &objectName) const;
    QLabel *label(const QString &objectName) const;
    QProgressBar *progressBar() const;
    QPushButton *playButton() const;
    QPushButton *button(const QString &text) const;
    QTextEdit *news() const;

    /// What a user sees of the current step, in one line: "text | style sheet | value/maximum |
    /// play button's text, on or off". A busy indicator has no value: "busy" stands in its place.
    QString face() const;

    /// Calls a private slot of the window.
    template <typename... Arguments> void call(const char *slot, const Arguments &...arguments);

    HttpServer server;

private:
    QTemporaryDir m_folder;
    std::unique_ptr<MainWindow> m_window;
};

template <typename Worker> Worker *LauncherFixture::worker() const
{
    return m_window->findChild<Worker *>(QString(), Qt::FindDirectChildrenOnly);
}

template <typename Widget> Widget *LauncherFixture::child(const QString &objectName) const
{
    return m_window->findChild<Widget *>(objectName);
}

template <typename... Arguments>
void LauncherFixture::call(const char *slot, const Arguments &...arguments)
{
    const bool called = QMetaObject::invokeMethod(
        m_window.get(), slot, Qt::DirectConnection,
        QArgument<Arguments>(QMetaType::fromType<Arguments>().name(), arguments)...);
    if (!called)
        qFatal("There is no slot %s with these parameters", slot);
}
