#include "tests/support/BoxAnswers.h"

#include <QAbstractButton>
#include <QApplication>
#include <QTest>

#include <chrono>

using namespace std::chrono_literals;

namespace {

constexpr auto kPollInterval = 5ms;

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
        return true;
    });
    return *this;
}

BoxAnswers &BoxAnswers::pressEscape()
{
    m_answers.append([](QMessageBox *box) {
        QTest::keyClick(box, Qt::Key_Escape);
        return true;
    });
    return *this;
}

BoxAnswers &BoxAnswers::closeFromTitleBar()
{
    m_answers.append([](QMessageBox *box) {
        box->close();
        return true;
    });
    return *this;
}

BoxAnswers &BoxAnswers::meanwhile(const std::function<void()> &action)
{
    m_answers.append([action](QMessageBox *) {
        action();
        return false;
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
    if (const auto answer = m_answers.takeFirst(); answer(box))
        m_current.clear();
}
