#include "publish/WebRequest.h"

#include <QHash>
#include <QList>

#include <algorithm>

namespace {

constexpr auto kLineEnd = "\r\n";

enum Status { BadRequest = 400, NotAllowed = 405, RangeNotSatisfiable = 416, UnknownVersion = 505 };

using Headers = QHash<QByteArray, QByteArray>;

bool isLetterOrDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isToken(const QByteArray &text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](char c) {
        return isLetterOrDigit(c) || QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
    });
}

bool isControl(char c)
{
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

bool isVisibleAscii(char c)
{
    return c > ' ' && c < '\x7f';
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Once, so that "%252e" is no point.
QByteArray decoded(const QByteArray &text)
{
    QByteArray result;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text.at(i) != '%') {
            result.append(text.at(i));
            continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text.at(i + 1)) : -1;
        const int low = i + 2 < text.size() ? hexValue(text.at(i + 2)) : -1;
        if (high < 0 || low < 0)
            throw WebRefusal{BadRequest};
        result.append(static_cast<char>(high * 16 + low));
        i += 2;
    }
    if (std::any_of(result.begin(), result.end(), isControl))
        throw WebRefusal{BadRequest};
    return result;
}

/// As nginx does it before it looks which rule holds for the path.
QByteArray normalised(const QByteArray &path)
{
    QList<QByteArray> parts;
    for (const QByteArray &part : path.split('/')) {
        if (part.isEmpty() || part == ".")
            continue;
        if (part != "..") {
            parts.append(part);
            continue;
        }
        if (parts.isEmpty())
            throw WebRefusal{BadRequest};
        parts.removeLast();
    }
    return '/' + parts.join('/');
}

/// What clients send to a proxy names the server first.
QByteArray withoutServer(const QByteArray &target)
{
    if (target.startsWith('/'))
        return target;
    const QByteArrayView scheme = "http://";
    if (!target.toLower().startsWith(scheme))
        throw WebRefusal{BadRequest};
    const qsizetype path = target.indexOf('/', scheme.size());
    return path < 0 ? QByteArray("/") : target.mid(path);
}

void readTarget(WebRequest &request, const QByteArray &target)
{
    const bool isPlain = std::all_of(target.begin(), target.end(), isVisibleAscii);
    if (!isPlain || target.contains('#'))
        throw WebRefusal{BadRequest};
    QByteArray path = withoutServer(target);
    if (const qsizetype query = path.indexOf('?'); query >= 0)
        path.truncate(query);
    path = decoded(path);
    request.path = normalised(path);
    request.namesFolder = path.endsWith('/') || path.endsWith("/.") || path.endsWith("/..");
}

Headers readHeaders(const QList<QByteArray> &lines)
{
    Headers headers;
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(std::max<qsizetype>(colon, 0)).toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        const bool isText = std::none_of(value.begin(), value.end(),
                                         [](char c) { return c != '\t' && isControl(c); });
        // Each of these says once how the request is to be read.
        const bool isSecond = headers.contains(name) && (name == "host" || name == "range");
        if (!isToken(name) || !isText || isSecond)
            throw WebRefusal{BadRequest};
        headers.insert(name, value);
    }
    return headers;
}

void readVersion(WebRequest &request, const QByteArray &version, const Headers &headers)
{
    if (!version.startsWith("HTTP/"))
        throw WebRefusal{BadRequest};
    const QByteArray connection = headers.value("connection").toLower();
    if (version == "HTTP/1.1") {
        if (!headers.contains("host"))
            throw WebRefusal{BadRequest};
        request.keepsConnection = connection != "close";
    } else if (version == "HTTP/1.0") {
        request.keepsConnection = connection == "keep-alive";
    } else {
        throw WebRefusal{UnknownVersion};
    }
}

/// Digits alone: no sign, no blank. -1 for anything else, and for more than a file can have.
qint64 number(const QByteArray &text)
{
    const bool isDigits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    bool isNumber = false;
    const qint64 value = text.toLongLong(&isNumber);
    return isDigits && isNumber ? value : -1;
}

} // namespace

WebRequest WebRequest::parse(const QByteArray &head)
{
    QByteArray text = head;
    if (!text.endsWith("\r\n\r\n"))
        throw WebRefusal{BadRequest};
    text.chop(4);
    QList<QByteArray> lines;
    for (qsizetype begin = 0; begin <= text.size();) {
        qsizetype end = text.indexOf(kLineEnd, begin);
        if (end < 0)
            end = text.size();
        lines.append(text.mid(begin, end - begin));
        begin = end + 2;
    }

    const QList<QByteArray> words = lines.takeFirst().split(' ');
    if (words.size() != 3 || !isToken(words.first()))
        throw WebRefusal{BadRequest};
    const Headers headers = readHeaders(lines);
    WebRequest request;
    readVersion(request, words.at(2), headers);
    readTarget(request, words.at(1));
    if (words.first() != "GET" && words.first() != "HEAD")
        throw WebRefusal{NotAllowed};
    // Nobody sends a body with a question for a file; its end would have to be looked for.
    if (headers.contains("transfer-encoding") || headers.value("content-length", "0") != "0")
        throw WebRefusal{BadRequest};
    request.wantsBody = words.first() == "GET";
    // No answer of ours has a validator that If-Range could repeat: the whole file is right then.
    if (!headers.contains("if-range"))
        request.range = headers.value("range");
    return request;
}

std::optional<WebRange> WebRange::of(const QByteArray &header, qint64 length)
{
    const QByteArray unit = "bytes=";
    if (!header.toLower().startsWith(unit) || header.contains(','))
        return {};
    const QByteArray text = header.mid(unit.size());
    const qsizetype dash = text.indexOf('-');
    const QByteArray firstText = text.left(std::max<qsizetype>(dash, 0)).trimmed();
    const QByteArray lastText = text.mid(dash + 1).trimmed();
    const qint64 first = firstText.isEmpty() ? 0 : number(firstText);
    const qint64 last = lastText.isEmpty() ? length - 1 : number(lastText);
    if (dash < 0 || first < 0 || last < 0 || (firstText.isEmpty() && lastText.isEmpty()))
        throw WebRefusal{RangeNotSatisfiable};
    const bool isFromEnd = firstText.isEmpty();
    const qint64 begin = isFromEnd ? length - std::min(last, length) : first;
    const qint64 end = isFromEnd ? length : std::min(last, length - 1) + 1;
    if (begin >= end)
        throw WebRefusal{RangeNotSatisfiable};
    return WebRange{begin, end - begin};
}
