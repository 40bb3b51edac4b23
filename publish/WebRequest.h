#pragma once

#include <QByteArray>

#include <optional>

/// A request that is answered with this status and the end of the connection.
struct WebRefusal
{
    int status;
};

/// What somebody asks a web server for: GET or HEAD of a file.
struct WebRequest
{
    /// Of a request's head, the empty line included. A longer one is refused.
    static constexpr qsizetype kLongestHead = 8192;

    bool wantsBody = true;
    bool keepsConnection = true;
    /// Decoded, with "/" in front and no part that is empty, "." or "..": it cannot lead upwards.
    QByteArray path;
    bool namesFolder = false; ///< its end was a "/"
    QByteArray range;         ///< as it came; empty where the whole file is wanted

    /// Of a head with its empty line. Throws a WebRefusal for whatever a launcher, a browser or
    /// curl would not send.
    static WebRequest parse(const QByteArray &head);
};

/// A part of a file.
struct WebRange
{
    qint64 offset;
    qint64 size;

    /// The part of a file of `length` bytes that a Range header wants. Nothing where it wants the
    /// whole, or more than one part. Throws a WebRefusal (416), as nginx does, where there is no
    /// such part and where it makes no sense.
    static std::optional<WebRange> of(const QByteArray &header, qint64 length);
};
