#pragma once

#include <QString>

/// What the program ends with.
enum class Outcome {
    Good = 0,
    Usage = 1,
    Refused = 2, ///< what was given; nothing was changed
    Errors = 3,
    Warnings = 4, ///< and nothing worse
    Unreachable = 5,
    Disk = 6,         ///< full, broken, or no right to it
    BrokenOff = 7,    ///< of a sending; the old site stands
    Interrupted = 130 ///< by Ctrl+C
};

/// Thrown by everything in this room that cannot go on. The text is French, for the operator.
struct Problem
{
    Outcome outcome;
    QString text;
};
