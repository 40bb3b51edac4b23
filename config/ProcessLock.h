#pragma once

#include <QLockFile>

/// Locks between processes that a crash never leaves locked.
namespace ProcessLock {

/// Takes the lock unless a living process holds it; lock.error() tells what else went wrong. Where
/// it is taken this lasts two tenths of a second, no longer.
///
/// QLockFile alone goes by what stands in the file: the one that a power cut has emptied, or whose
/// process number now belongs to another launcher, it would respect for ever. The file cannot be
/// removed while the system knows of a holder, and that is what counts here.
inline bool take(QLockFile &lock)
{
    // Whoever is just making the file holds it a moment later: hence the second look.
    constexpr int kSecondLook = 100; // milliseconds
    lock.setStaleLockTime(0);        // age says nothing: downloads take hours
    if (lock.tryLock(kSecondLook))
        return true;
    if (lock.error() != QLockFile::LockFailedError)
        return false;
    // Of two that remove the same file the second could remove what the first has made in its
    // place. QLockFile keeps others from that with a lock of this name, and goes by its age.
    QLockFile removal(lock.fileName() + QLatin1StringView(".rmlock"));
    return removal.tryLock(kSecondLook) && lock.removeStaleLockFile() && lock.tryLock(0);
}

} // namespace ProcessLock
