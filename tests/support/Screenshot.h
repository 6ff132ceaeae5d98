#pragma once

#include <QDir>
#include <QString>
#include <QWidget>

// Saves what a widget shows to <build>/screenshots/<name>.png for a person to
// look at. Returns whether the file was written.
inline bool saveScreenshot(QWidget *widget, const QString &name)
{
    const QString dir = QStringLiteral(PD_BINARY_DIR "/screenshots");
    QDir().mkpath(dir);
    return widget->grab().save(dir + QLatin1Char('/') + name + QStringLiteral(".png"));
}
