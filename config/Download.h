#pragma once

#include <QtGlobal>

/// Figures that the downloads of all workers share.
namespace Download {

/// Progress texts count in MB of 1,048,576 bytes.
inline constexpr double kBytesToMegabytes = 9.5367431640625e-7;

/// How many bytes a reply may hold before the launcher has read them. Without a bound a fast
/// network outruns a slow disk and the archive piles up in memory. The network's thread, the reply
/// and the block on its way to the disk take some five times as much; larger blocks are no faster,
/// and the event loop comes round less often.
inline constexpr qint64 kReadBufferSize = qint64{256} * 1024;

} // namespace Download
