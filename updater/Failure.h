#pragma once

#include <string>
#include <utility>

/// What the program ends with.
enum class ExitCode {
    Done = 0,
    Usage = 1,
    StillRunning = 2,   ///< the launcher, or another run of this program, did not end in time
    Refused = 3,        ///< the archive is not what it should be; nothing was touched
    NotPrepared = 4,    ///< staging or the disk; nothing was touched
    RolledBack = 5,     ///< the replacement failed and was undone
    RollBackFailed = 6, ///< the replacement failed and could not be undone yet
    NotRestarted = 7    ///< the launcher is replaced but does not start
};

/// Thrown by everything in this room that cannot go on. The text is French, for the player.
struct Failure
{
    Failure(ExitCode exitCode, std::string message)
        : code(exitCode)
        , text(std::move(message))
    {
    }

    /// The archive is not what it should be, and why.
    static Failure refused(std::string reason)
    {
        return Failure(ExitCode::Refused, std::move(reason));
    }

    ExitCode code;
    std::string text;
};
