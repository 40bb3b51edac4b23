#pragma once

#include <QString>
#include <QTemporaryDir>

/// Gives a test process folders of its own for configuration, temporary files and game, so that
/// tests touch nothing of the person's and run side by side. Make it before the application object.
class TestEnvironment
{
public:
    TestEnvironment();

    /// Where this process keeps everything; removed at its end.
    QString folder() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
};

/// The main() of a test program that shows widgets.
#define VEYRA_WIDGET_TEST_MAIN(TestClass) VEYRA_TEST_MAIN_WITH(QApplication, TestClass)
/// The main() of a test program without widgets.
#define VEYRA_CORE_TEST_MAIN(TestClass) VEYRA_TEST_MAIN_WITH(QCoreApplication, TestClass)

#define VEYRA_TEST_MAIN_WITH(Application, TestClass)                                               \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        const TestEnvironment environment;                                                         \
        Application application(argc, argv);                                                       \
        Application::setApplicationName(QStringLiteral("Veyra Launcher"));                         \
        Application::setOrganizationName(QStringLiteral("Veyra"));                                 \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
