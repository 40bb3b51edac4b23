#pragma once

#include "tests/support/HttpServer.h"

/// What a broken, hostile or dying server may say, with names for the rows of a test.
namespace BadAnswers {

struct NamedAnswer
{
    const char *name;
    HttpAnswer answer;
};

/// Answers that the network layer reports as an error, whatever they carry. Not for "/loop", which
/// those that redirect without end need: loopAt() scripts it.
QList<NamedAnswer> failures(const QByteArray &goodBody);
/// Why a row with the answer cannot run here; empty where it can.
QString reasonToSkip(const HttpAnswer &answer);
void loopAt(HttpServer &server);

/// Bodies that come through well but hold no JSON document.
QList<NamedAnswer> brokenJson();

} // namespace BadAnswers
