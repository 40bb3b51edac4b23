#pragma once

#include <QTextEdit>

/// Shows the news. They come over plain HTTP from the network, so nothing in them may make the
/// launcher open a file: on Windows an image at "//host/share" would even send that host the user's
/// credentials.
class NewsView : public QTextEdit
{
public:
    using QTextEdit::QTextEdit;

    QVariant loadResource(int, const QUrl &) override { return {}; }
};
