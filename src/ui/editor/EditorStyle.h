#pragma once

#include <QColor>
#include <QIcon>
#include <QPalette>
#include <QSize>
#include <QString>

class QAbstractButton;
class QWidget;

// The editor's look in one place: colours derived from the palette so that
// text, borders and icons read in dark and light themes alike, the pop-up
// frame style, and the one factory for its flat tool buttons.
namespace EditorStyle {

// The smallest contrast the editor allows between text and its background.
constexpr double MinimumContrast = 4.5;

// The contrast ratio of two opaque colours as used for readability, 1 to 21.
double contrastRatio(const QColor &a, const QColor &b);

// Secondary text and borders: the window text toned towards the window
// colour, but well above MinimumContrast against it.
QColor mutedColor(const QPalette &palette);
// The background of a hovered flat button: the button colour a step towards
// its text, so the button-text icon on it stays readable.
QColor hoverColor(const QPalette &palette);

// "#name { background: palette(window); border: ...; border-radius: 4px; }"
QString popupStyle(const QString &objectName, const QPalette &palette);
// Style rules for the flat checkable buttons of the tool box and pop-ups.
QString flatButtonRules(const QPalette &palette);

// A checkable flat button of the tool box or a pop-up. None of the editor's
// buttons is a dialog default: Enter never clicks one.
template <typename Button>
Button *flatButton(QWidget *parent, const QString &objectName, const QIcon &icon, const QSize &size,
                   const QSize &iconSize, const QString &tooltip)
{
    auto *button = new Button(parent);
    button->setObjectName(objectName);
    button->setFixedSize(size);
    button->setIcon(icon);
    button->setIconSize(iconSize);
    button->setToolTip(tooltip);
    button->setCheckable(true);
    button->setFlat(true);
    button->setAutoDefault(false);
    return button;
}

// A thin line between groups of controls.
QWidget *separator(QWidget *parent, const QSize &size, const char *moreStyle = "");

} // namespace EditorStyle
