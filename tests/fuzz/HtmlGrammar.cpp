#include "tests/fuzz/HtmlGrammar.h"

#include <algorithm>

// No statement draws twice: the operands of + and a function's arguments are evaluated in the
// compiler's own order, and the same seed must give the same text everywhere.

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList words(QLatin1StringView text)
{
    return QString(text).split(u' ');
}

const QStringList kTags = words(
    "a address b big blockquote body br caption center cite code dd dfn div dl dt em font h1 h2 h3 "
    "h4 h5 h6 head hr html i img kbd li link meta nobr ol p pre s samp script small span strong "
    "style sub sup table tbody td tfoot th thead title tr tt u ul var unknown !-- ! /p /td /tr "
    "/table /b /ul /li /div"_L1);

// What makes layouts work hard comes more often.
const QStringList kHeavyTags = words("table tr td th ul ol li caption thead tfoot div p"_L1);

const QStringList kAttributes = words(
    "align background bgcolor border bordercolor cellpadding cellspacing class color colspan "
    "content dir face height href id name rowspan size src start style title type valign width"_L1);

const QStringList kProperties = words(
    "background background-color background-image border border-bottom border-collapse "
    "border-color border-left border-right border-style border-top border-width color float font "
    "font-family font-size font-style font-variant font-weight height left letter-spacing "
    "line-height list-style list-style-type margin margin-bottom margin-left margin-right "
    "margin-top padding padding-bottom padding-left padding-right padding-top page-break-after "
    "page-break-before text-align text-decoration text-indent text-transform vertical-align "
    "white-space width word-spacing -qt-block-indent -qt-line-height-type -qt-list-indent "
    "-qt-list-number-prefix -qt-list-number-suffix -qt-paragraph-type -qt-table-type "
    "-qt-user-state"_L1);

const QStringList kWords = words(
    "left right center justify top middle bottom rtl ltr #10b981 red transparent none solid dashed "
    "dotted double groove pre nowrap pre-wrap pre-line always bold italic underline line-through "
    "small-caps uppercase collapse frame root empty fixed minimum proportional line-distance disc "
    "decimal lower-alpha upper-roman serif monospace sub super inherit url(file:///etc/hosts) "
    "file:///etc/hosts http://veyra.test/x qlineargradient(x1:0,y1:0,x2:1,y2:0,stop:0red) "
    "qlineargradient(x1:) qr\\61 dialgradient(stop:0 rgb(1,2,3) rgba(1,2,3,.5) rgb( palette(link) "
    "#12 "
    "hsl(1,2) \\ /* url("_L1);

const QStringList kNumbers = words(
    "0 1 2 3 5 10 13 20 40 100 300 999 5000 20480 65535 99999 9000000 2147483647 4294967296 1e9 "
    "-1 -10 -500 -9000000 0.01 .5 1.5 9999.5 NaN"_L1);

const QStringList kComments = words("<!-- --> <!-- <!--x{}--></x> /**/ /* --> --"_L1);

/// What makes tabs, capitals and directions count.
const QStringList kSettings{u"<p style='font-variant:small-caps'>"_s,
                            u"<p style='white-space:pre-wrap'>"_s,
                            u"<td style='font-variant:small-caps; white-space:pre-wrap'>"_s,
                            u"<pre>"_s,
                            u"<p dir=rtl>"_s,
                            u"<td dir=rtl>"_s,
                            u"<p dir=rtl style='white-space:pre-wrap; font-variant:small-caps'>"_s};

const QStringList kRelations{u" "_s, u", "_s,   u" > "_s,   u"+"_s,
                             u"~"_s, u" *, "_s, u".a.a "_s, u"&#126;"_s};

// In front of a tag's name.
const QStringList kOddBrackets{u"< "_s, u"<\n"_s, u"<\""_s, u"<'"_s};

// Behind a tag's name.
const QStringList kOddEnds{u":x"_s, u"/x"_s, u"-x"_s, u"."_s, u"/"_s};

const QStringList kUnits = words("px px px pt em ex % cm"_L1);

} // namespace

QStringList HtmlGrammar::feed()
{
    QStringList items;
    const int itemKinds = 1 + below(3);
    for (int kind = 0; kind < itemKinds; ++kind) {
        QString item;
        const int parts = 1 + below(12);
        for (int i = 0; i < parts; ++i)
            item += part();
        // Few documents are long: they take their time, and length is one mistake among many.
        const int most = oneIn(100) ? 2000 : 4;
        const int copies = 1 + below(most);
        items += QStringList(std::min<qsizetype>(copies, 400'000 / (item.size() + 1) + 1), item);
    }
    return items;
}

QString HtmlGrammar::part()
{
    if (oneIn(400))
        return oneIn(2) ? link() : grid();
    QString part;
    switch (below(8)) {
    case 0:
        part = text();
        break;
    case 1:
        part = u"<style>"_s;
        if (oneIn(4))
            part += oneOf(kComments);
        part += oneOf(kTags);
        if (oneIn(3))
            part += oneOf(kRelations) + u'b';
        part += u'{' + style();
        part += u"}</style>"_s;
        break;
    case 2:
        part = tag();
        part += text();
        part += u"</"_s + oneOf(kTags) + u'>';
        break;
    default:
        part = tag();
        if (oneIn(2))
            part += text();
    }
    if (oneIn(4))
        part += tag();
    if (oneIn(10)) {
        part += oneOf(kSettings);
        part += text();
    }
    const int most = oneIn(120) ? (oneIn(4) ? 3000 : 300) : 4;
    const int copies = 1 + below(most);
    return part.repeated(std::min<qsizetype>(copies, 200'000 / (part.size() + 1) + 1));
}

/// In many pieces.
QString HtmlGrammar::link()
{
    const QString letter = oneIn(2) ? u"a"_s : u"\u4e2d"_s;
    const int most = oneIn(4) ? 20'000 : 300;
    const int hostLength = 1 + below(most);
    const QString host = letter.repeated(hostLength);
    const int pieces = 1 + below(500);
    QString link;
    for (int i = oneIn(2) ? 1 : below(300); i > 0 && link.size() < 200'000; --i) {
        const QString begin = u"<a href='http://"_s + host + QString::number(i);
        link += begin + u"/'>"_s + u"<b>x</b> <i>y</i>"_s.repeated(pieces / i + 1) + u"</a>"_s;
    }
    return link;
}

/// Columns, and rows somewhat later.
QString HtmlGrammar::grid()
{
    const int columns = below(3000);
    const int rows = below(3000);
    QString grid = oneIn(2) ? QString() : u"<b></b>"_s.repeated(columns);
    const QString row = oneIn(2) ? u"<tr>"_s : u"<tr><td>"_s;
    const QString cell = u"<td>"_s.repeated(columns);
    const QString rest = row.repeated(rows);
    grid += u"<table>"_s;
    grid += oneIn(2) ? cell + rest : rest + cell;
    return grid;
}

QString HtmlGrammar::tag()
{
    const QStringList &names = oneIn(2) ? kHeavyTags : kTags;
    QString name = spelledOddly(oneOf(names));
    if (oneIn(40))
        name += oneOf(kOddEnds);
    QString tag = (oneIn(30) ? oneOf(kOddBrackets) : u"<"_s) + name;
    tag += attributes();
    if (!oneIn(40))
        tag += u'>';
    return tag;
}

QString HtmlGrammar::attributes()
{
    QString attributes;
    for (int i = below(4); i > 0; --i) {
        const bool isStyle = oneIn(2);
        const QString name = isStyle ? u"style"_s : oneOf(kAttributes);
        const QString quote = oneIn(5) ? QString() : oneIn(2) ? u"'"_s : u"\""_s;
        attributes += u' ' + spelledOddly(name) + u'=' + quote;
        attributes += isStyle ? style() : value();
        if (oneIn(20))
            attributes += u'>';
        attributes += quote;
    }
    return attributes;
}

QString HtmlGrammar::style()
{
    QString style;
    for (int i = 1 + below(3); i > 0; --i)
        style += declaration() + u';';
    return style;
}

QString HtmlGrammar::declaration()
{
    QString declaration = oneOf(kProperties) + u':';
    declaration += value();
    while (oneIn(3))
        declaration += u' ' + value();
    return declaration;
}

QString HtmlGrammar::value()
{
    if (oneIn(3))
        return oneOf(kWords);
    if (oneIn(40))
        return u"'\u0939\u4e2d\u1b05\u07ca\U0001f600'"_s;
    if (oneIn(20))
        return u'f' + QString::number(below(1000));
    QString number = spelledOddly(oneOf(kNumbers));
    if (!oneIn(4))
        number += oneOf(kUnits);
    return number;
}

QString HtmlGrammar::text()
{
    static const QStringList kTexts{u"Serveur"_s,
                                    u"à "_s,
                                    u"Dès ce soir, la saison commence. "_s,
                                    u"x"_s,
                                    u" "_s,
                                    u"\n"_s,
                                    u"&nbsp;"_s,
                                    u"&#0;"_s,
                                    u"&#65532;"_s,
                                    u"&#8233;"_s,
                                    u"\u0628"_s,
                                    u"\u0301"_s,
                                    u"\u200b"_s,
                                    u"\u202e"_s,
                                    u"\u2066"_s,
                                    u"\u0939\u093f"_s,
                                    u"\u4e2d"_s,
                                    u"\U0001f600"_s,
                                    u"\u2192 "_s,
                                    u"\u0e17\u10a0"_s,
                                    u"\ufffc"_s,
                                    u"\ufdd0"_s,
                                    u"\u2029"_s,
                                    u"\u2028"_s,
                                    u"\t"_s,
                                    u"ab\t"_s,
                                    u"aA "_s,
                                    u"aB1"_s,
                                    u"1 (2) "_s,
                                    u"a ! "_s,
                                    u"\u00ad"_s,
                                    u"\u00a0"_s,
                                    u"&shy;"_s,
                                    u"\u0660"_s,
                                    u"\u05d0 "_s,
                                    u"\u1100\u1161"_s,
                                    u"\u1b05"_s,
                                    u"\u07ca"_s,
                                    u"\U000e0100"_s,
                                    u"\u0003"_s,
                                    u"-"_s,
                                    u"<"_s,
                                    u"&"_s,
                                    QString(QChar(0xd800)),
                                    QString(QChar(0)),
                                    u"\ue000"_s};
    QString text = oneOf(kTexts);
    while (oneIn(3))
        text += oneOf(kTexts);
    const int most = oneIn(120) ? (oneIn(4) ? 50'000 : 2000) : 6;
    const int copies = 1 + below(most);
    return text.repeated(copies);
}

/// A letter as a reference, which the parser resolves in names as well.
QString HtmlGrammar::spelledOddly(QString text)
{
    if (oneIn(25) && !text.isEmpty()) {
        const int at = below(static_cast<int>(text.size()));
        text.replace(at, 1, u"&#%1;"_s.arg(text[at].unicode()));
    }
    return oneIn(20) ? text.toUpper() : text;
}

QString HtmlGrammar::oneOf(const QStringList &words)
{
    return words[below(static_cast<int>(words.size()))];
}
