#pragma once

#include "tests/support/HttpServer.h"

#include <QByteArray>

class QNetworkReply;

/// What may happen to a download, as data rows for the tests of every worker that has one.
namespace Transfers {

/// Answers that bring everything. Columns: "answer"; "moved", for the path "/moved" that some of
/// them redirect to; "content", what has to arrive; "lastPercent", of the last progress report, -1
/// where Qt does not know the size then.
void addWhole();

/// Answers that end in an error, after half of `content` or without any. Columns: "answer"; "skip",
/// why the row cannot run here.
void addFailures(const QByteArray &content);

/// What was received of how much. Columns: "received", "total", "percent", -1 for an unknown size.
void addProgress();

/// Many bytes, whichever way they come. Columns: "answer", "moved" and "content" as above; "skip",
/// why the memory that it takes cannot be told here.
void addLarge();

/// Keeps this thread busy whenever the head of an answer has come, while the server goes on.
void beBusyAtEachHead(QNetworkReply *reply);

/// What a bounded download may take, in MB: a fraction of what addLarge() sends.
inline constexpr qint64 kMostMemory = 32;

} // namespace Transfers
