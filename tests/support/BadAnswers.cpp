#include "tests/support/BadAnswers.h"

#include "tests/support/Platform.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype kDeep = 100000;
constexpr qsizetype kHuge = qsizetype{50} * 1024 * 1024;

} // namespace

QList<BadAnswers::NamedAnswer> BadAnswers::failures(const QByteArray &goodBody)
{
    // What is cut off ends after one byte: a truncated object could be taken for a broken one.
    return {
        {"404 with a body that would do", HttpAnswer::status(404, goodBody)},
        {"404 with nothing", HttpAnswer::status(404)},
        {"403", HttpAnswer::status(403, goodBody)},
        {"401 asks for a password", HttpAnswer::status(401, goodBody)},
        {"500", HttpAnswer::status(500, goodBody)},
        {"503 with nothing", HttpAnswer::status(503)},
        {"a body that is cut off", HttpAnswer::ok(goodBody).truncatedAfter(1)},
        {"a head without its body", HttpAnswer::ok(goodBody).truncatedAfter(0)},
        {"a reset within the body", HttpAnswer::ok(goodBody).resetAfter(1)},
        {"chunks that are cut off", HttpAnswer::ok(goodBody).chunked().truncatedAfter(1)},
        {"redirects without end", HttpAnswer::redirect("http://veyra.test/loop")},
        {"a redirect to a local file", HttpAnswer::redirect("file:///etc/hostname")},
        {"a redirect to an unknown scheme", HttpAnswer::redirect("gopher://veyra.test/")},
        {"a redirect to nowhere", HttpAnswer::redirect("http://veyra.test/nowhere")},
    };
}

QString BadAnswers::reasonToSkip(const HttpAnswer &answer)
{
    return answer.resetAt >= 0 ? Platform::reasonToSkipResets() : QString();
}

void BadAnswers::loopAt(HttpServer &server)
{
    server.answer("/loop", HttpAnswer::redirect("http://veyra.test/loop"));
}

QList<BadAnswers::NamedAnswer> BadAnswers::brokenJson()
{
    const auto ok = [](const QByteArray &body) { return HttpAnswer::ok(body); };
    return {
        {"an empty body", ok({})},
        {"blanks only", ok(" \n\t ")},
        {"no content", HttpAnswer::status(204)},
        {"HTML", ok("<html><body>Bienvenue</body></html>")},
        {"a string", ok("\"ok\"")},
        {"a number", ok("42")},
        {"true", ok("true")},
        {"null", ok("null")},
        {"an object that is not closed", ok(R"({"online": true, "players": 3)")},
        {"an array that is not closed", ok(R"(["Maintenance")")},
        {"an object with something behind it", ok(R"({"online": true} x)")},
        {"an array with something behind it", ok(R"(["Maintenance"] x)")},
        {"two objects", ok("{}{}")},
        {"single quotes", ok("{'online': true}")},
        {"a comment", ok("// status\n{\"online\": true}")},
        {"a trailing comma", ok(R"({"online": true,})")},
        {"invalid UTF-8 in a string", ok("{\"version\": \"2.0\xff\xfe\"}")},
        {"invalid UTF-8 in an array", ok("[\"\xc3\x28\"]")},
        {"UTF-16", ok(QByteArray("{\0}\0", 4))},
        {"NUL bytes", ok(QByteArray(1000, '\0'))},
        {"a NUL byte within an object", ok(QByteArray("{\0}", 3))},
        {"a number beyond the range", ok(R"({"online": true, "players": 1e400})")},
        {"not a number", ok(R"({"online": true, "players": NaN})")},
        {"100,000 brackets", ok(QByteArray(kDeep, '['))},
        {"100,000 nested arrays", ok(QByteArray(kDeep, '[') + QByteArray(kDeep, ']'))},
        {"100,000 nested objects",
         ok(QByteArray("{\"a\":").repeated(kDeep) + "1" + QByteArray(kDeep, '}'))},
        {"50 MB of noise", ok(QByteArray(kHuge, 'x'))},
    };
}
