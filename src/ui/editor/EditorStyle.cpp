#include "editor/EditorStyle.h"

#include <QWidget>

#include <algorithm>
#include <cmath>

namespace {

double channelLuminance(int value)
{
    const double c = value / 255.0;
    return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

double luminance(const QColor &color)
{
    return 0.2126 * channelLuminance(color.red()) + 0.7152 * channelLuminance(color.green()) +
           0.0722 * channelLuminance(color.blue());
}

QColor mix(const QColor &from, const QColor &to, double t)
{
    return QColor::fromRgbF(float(from.redF() + (to.redF() - from.redF()) * t),
                            float(from.greenF() + (to.greenF() - from.greenF()) * t),
                            float(from.blueF() + (to.blueF() - from.blueF()) * t));
}

} // namespace

namespace EditorStyle {

double contrastRatio(const QColor &a, const QColor &b)
{
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor mutedColor(const QPalette &palette)
{
    const QColor text = palette.color(QPalette::WindowText);
    const QColor window = palette.color(QPalette::Window);
    // Thin glyphs such as a dash are antialiased to a paler colour than the
    // one they are drawn in: aim well above the minimum.
    const double target = std::min(2.0 * MinimumContrast, contrastRatio(text, window));
    for (double t = 0.5; t < 1.0; t += 0.05) {
        const QColor candidate = mix(window, text, t);
        if (contrastRatio(candidate, window) >= target)
            return candidate;
    }
    return text;
}

QColor hoverColor(const QPalette &palette)
{
    const QColor button = palette.color(QPalette::Button);
    const QColor text = palette.color(QPalette::ButtonText);
    for (double t = 0.2; t > 0.0; t -= 0.04) {
        const QColor candidate = mix(button, text, t);
        if (contrastRatio(candidate, text) >= MinimumContrast + 0.1)
            return candidate;
    }
    return button;
}

QString popupStyle(const QString &objectName, const QPalette &palette)
{
    return QStringLiteral("#%1 { background: palette(window); border: 1px solid %2; "
                          "border-radius: 4px; }")
        .arg(objectName, mutedColor(palette).name());
}

QString flatButtonRules(const QPalette &palette)
{
    return QStringLiteral(
               "QPushButton { border: none; border-radius: 2px; padding: 2px; min-width: 0px; }"
               "QPushButton:checked { background: palette(highlight);                       "
               "color: palette(highlighted-text); }"
               "QPushButton:hover:!checked { background: %1; }")
        .arg(hoverColor(palette).name());
}

QWidget *separator(QWidget *parent, const QSize &size, const char *moreStyle)
{
    auto *line = new QWidget(parent);
    line->setFixedSize(size);
    line->setStyleSheet(QStringLiteral("background: rgba(130,130,130,160);") +
                        QLatin1String(moreStyle));
    return line;
}

} // namespace EditorStyle
