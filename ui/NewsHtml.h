#pragma once

#include <QFont>
#include <QStringList>

#include <atomic>
#include <memory>

class QTextDocument;

/// The news come from the network as HTML, and a few hundred bytes of it are enough to keep Qt's
/// layout busy for ever. No scanner of our own can tell which: it would read the tags in another
/// way than Qt's parser does. So Qt parses, and what came out is looked at (see NewsBounds). Ours
/// only estimates how long the parser takes.
namespace NewsHtml {

/// True for news that are short and plain enough to be read at once, on the GUI thread.
bool isQuick(const QStringList &news);

/// The news as a document without parent and layout, within what the panel lays out at once. It
/// reads no file and no address. Style sheets that might take long to apply are left out. May take
/// seconds for a feed made to that end, fewer when it is abandoned meanwhile: then there is only
/// the beginning. Any thread.
std::unique_ptr<QTextDocument> read(const QStringList &news, const QFont &font,
                                    const std::atomic_bool &isAbandoned);

} // namespace NewsHtml
