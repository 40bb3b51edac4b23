#pragma once

#include <QString>

class Destination;
class Workshop;

/// Of two workshops that send to one destination the second is told so: a folder there, whose name
/// says whose it is and since when. While it is sending, a workshop itself is locked; what a run
/// that was killed has left of the same workshop counts for nothing.
class DestinationLock
{
public:
    /// Throws a Problem (Outcome::Refused) while another one has it.
    DestinationLock(Destination &destination, Workshop &workshop);
    ~DestinationLock();
    Q_DISABLE_COPY_MOVE(DestinationLock)

    /// Throws a Problem where somebody has taken it away.
    void check() const;

private:
    Destination &m_destination;
    QString m_name;
};
