#include "updater/FaultPoints.h"

int FaultPoints::next()
{
    return 0;
}

FaultPoints::Replacing FaultPoints::replacing()
{
    return Replacing::Works;
}

std::size_t FaultPoints::longestWrite()
{
    return SIZE_MAX;
}

bool FaultPoints::waitsForDisk()
{
    return true;
}

std::optional<std::uint64_t> FaultPoints::freeBytes()
{
    return std::nullopt;
}
