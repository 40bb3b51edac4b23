#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/// The command that unpacks an archive; chosen when it is needed, from what the machine has.
struct UnpackCommand
{
    QString program;
    QStringList arguments;
    QProcessEnvironment environment;
};

/// Unpacks the zip file `archivePath` into `destination` and overwrites what is there. Where there
/// is a PowerShell (always on Windows) it does the work, elsewhere unzip, or bsdtar. All of them
/// answer with an exit code and a text on the standard error.
UnpackCommand unpackCommand(const QString &archivePath, const QString &destination);

/// Whether such a command, which has ended, has unpacked all that it could. Which files the archive
/// held is for the caller to look at.
bool hasUnpacked(const QString &program, int exitCode, QProcess::ExitStatus exitStatus);
