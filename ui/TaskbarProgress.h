#pragma once

#include <QObject>

class QProgressBar;
struct ITaskbarList3;

/// Shows what the progress bar shows on the window's button in Windows' task bar too, for players
/// who have turned to another window. Elsewhere it does nothing. Belongs to the bar; GUI thread.
class TaskbarProgress : public QObject
{
    Q_OBJECT

public:
    explicit TaskbarProgress(QProgressBar *bar);
    ~TaskbarProgress() override;

    /// To be called when the bar's range has changed, of which the bar does not tell.
    void follow();
    /// Nothing is on its way any more, wherever the bar stands.
    void end();
    /// The same; the button is red until the player comes back to the launcher.
    void fail();

private:
    enum class Look { Plain, Partial, Busy, Failed };

    void show(Look look, int percent = 0);
    void tellSystem();

    QProgressBar *m_bar;
    Look m_look = Look::Plain;
    int m_percent = 0;
    ITaskbarList3 *m_taskbar = nullptr; // asked for when there is something to show
};
