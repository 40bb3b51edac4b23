#pragma once

#include <chrono>

/// How long a site is waited for. Tests have less of it.
struct Patience
{
    using Time = std::chrono::milliseconds;

    Time answer = std::chrono::seconds(15); ///< for its beginning, and for each further piece
    Time wholeAnswer = std::chrono::minutes(5);
    Time download = std::chrono::hours(1);      ///< of a launcher's archive
    Time sight = std::chrono::seconds(30);      ///< for all that a launcher shows of a site
    Time standstill = std::chrono::seconds(60); ///< of a download
};
