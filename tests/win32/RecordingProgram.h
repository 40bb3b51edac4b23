#pragma once

#include <QString>

/// A program that a test puts where the launcher expects PowerShell, the game or the updater
/// program; see RecordingMain.cpp. It goes away with its records when the object does.
class RecordingProgram
{
public:
    /// Puts it at `path`, a whole path that ends in ".exe", and makes the folder.
    explicit RecordingProgram(const QString &path);
    ~RecordingProgram();
    Q_DISABLE_COPY_MOVE(RecordingProgram)

    /// "crash", "hang", "nothing", or "fail " with the text for the standard error. Without it
    /// PowerShell unpacks and others end at once.
    void does(const QString &behaviour);

    bool wasStarted() const;
    /// What Windows handed over, to the letter.
    QString commandLine() const;
    QString workingDirectory() const;

private:
    QString recordLine(int index) const;

    QString m_path;
};
