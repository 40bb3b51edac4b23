#pragma once

#include <QString>

/// How far the memory of this process rises above what it was when this was made.
class MemoryRise
{
public:
    MemoryRise();

    /// At its peak so far, in MB. Only where reasonToSkip() is empty.
    qint64 megabytes() const;

    /// Why the figure says nothing about the program here; empty where it does.
    static QString reasonToSkip();

private:
    qint64 m_before;
};
