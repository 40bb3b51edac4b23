#pragma once

#include <QTranslator>

/// French for the context menus of text fields and scroll bars, whose texts are Qt's own. All other
/// texts of Qt stay as they are, those of the dialogs' buttons too.
class FrenchMenus : public QTranslator
{
    Q_OBJECT

public:
    using QTranslator::QTranslator;

    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *sourceText, const char *disambiguation,
                      int n) const override;
};
