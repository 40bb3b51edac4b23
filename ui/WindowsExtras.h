#pragma once

class QString;
class QWidget;

/// What Windows offers and Qt 6.4 does not ask for. Nothing of it does anything elsewhere, nor on a
/// Windows that is too old for it.
namespace WindowsExtras {

/// Gives every window of the program that is shown from now on a dark title bar.
void darkenTitleBars();

/// Has screen readers speak a text.
void notifyReaders(const QWidget *window, const QString &text);

} // namespace WindowsExtras
