#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <functional>

/// Answers the message boxes that appear while it lives, as a user would: finds them among the
/// top-level windows and clicks, presses Escape or closes them. A box that no answer is left for is
/// closed as well, so that no test hangs; it stands in seen() like the others.
class BoxAnswers : public QObject
{
    Q_OBJECT

public:
    struct Box
    {
        QString title;
        QString text;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        QMessageBox::StandardButtons buttons = QMessageBox::NoButton;
        bool modal = false;
        QWidget *parent = nullptr;
    };

    explicit BoxAnswers(QObject *parent = nullptr);

    BoxAnswers &click(QMessageBox::StandardButton button);
    BoxAnswers &pressEscape();
    BoxAnswers &closeFromTitleBar();
    /// Runs `action` while the next box is open; the box stays for the answer that follows.
    BoxAnswers &meanwhile(const std::function<void()> &action);

    /// Leaves the next box open until `condition` holds (for a minute at most).
    BoxAnswers &until(const std::function<bool()> &condition);

    const QList<Box> &seen() const { return m_seen; }

private:
    enum class Outcome {
        Wait,     ///< ask the same again
        Next,     ///< the box stays for the next answer
        Answered, ///< the box is closed
    };

    void answerOpenBox();

    QTimer m_poll;
    QList<std::function<Outcome(QMessageBox *)>> m_answers;
    QList<Box> m_seen;
    QPointer<QMessageBox> m_current;
};
