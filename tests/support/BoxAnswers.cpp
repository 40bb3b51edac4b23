#include "tests/support/BoxAnswers.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDeadlineTimer>
#include <QTest>

#include <chrono>

using namespace std::chrono_literals;

namespace {

constexpr auto kPollInterval = 5ms;
constexpr auto kLongestWait = 1min;

QMessageBox *openBox()
{
    return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
}

} // namespace

BoxAnswers::BoxAnswers(QObject *parent)
    : QObject(parent)
{
    connect(&m_poll, &QTimer::timeout, this, &BoxAnswers::answerOpenBox);
    m_poll.start(kPollInterval);
}

BoxAnswers &BoxAnswers::click(QMessageBox::StandardButton button)
{
    m_answers.append([button](QMessageBox *box) {
        QTest::mouseClick(box->button(button), Qt::LeftButton);
        return Outcome::Answered;
    });
    return *this;
}

BoxAnswers &BoxAnswers::pressEscape()
{
    m_answers.append([](QMessageBox *box) {
        QTest::keyClick(box, Qt::Key_Escape);
        return Outcome::Answered;
    });
    return *this;
}

BoxAnswers &BoxAnswers::closeFromTitleBar()
{
    m_answers.append([](QMessageBox *box) {
        box->close();
        return Outcome::Answered;
    });
    return *this;
}

BoxAnswers &BoxAnswers::meanwhile(const std::function<void()> &action)
{
    m_answers.append([action](QMessageBox *) {
        action();
        return Outcome::Next;
    });
    return *this;
}

BoxAnswers &BoxAnswers::until(const std::function<bool()> &condition)
{
    m_answers.append(
        [condition, deadline = QDeadlineTimer(QDeadlineTimer::Forever)](QMessageBox *) mutable {
            if (deadline.isForever())
                deadline.setRemainingTime(kLongestWait);
            return condition() || deadline.hasExpired() ? Outcome::Next : Outcome::Wait;
        });
    return *this;
}

void BoxAnswers::answerOpenBox()
{
    QMessageBox *box = openBox();
    if (!box || !box->isVisible())
        return;
    if (box != m_current) {
        m_current = box;
        m_seen.append({box->windowTitle(), box->text(), box->icon(), box->standardButtons(),
                       box->isModal(), box->parentWidget()});
    }

    if (m_answers.isEmpty()) {
        m_current.clear();
        box->close();
        return;
    }
    const auto answer = m_answers.takeFirst();
    const Outcome outcome = answer(box);
    if (outcome == Outcome::Wait)
        m_answers.prepend(answer);
    else if (outcome == Outcome::Answered)
        m_current.clear();
}
