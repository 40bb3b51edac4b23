#pragma once

#include "tests/support/HttpServer.h"

/// What a broken, hostile or dying server may say, with names for the rows of a test.
namespace BadAnswers {

struct NamedAnswer
{
    const char *name;
    HttpAnswer answer;
};

/// Data rows of answers that the network layer reports as an error, whatever they carry. Columns:
/// "answer"; "skip", why the row cannot run here. Not for "/loop", which the answers that redirect
/// without end need: loopAt() scripts it.
void addFailures(const QByteArray &goodBody);
QString reasonToSkip(const HttpAnswer &answer);
void loopAt(HttpServer &server);

/// Bodies that come through well but hold no JSON document.
QList<NamedAnswer> brokenJson();

} // namespace BadAnswers
