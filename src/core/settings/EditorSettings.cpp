#include "settings/EditorSettings.h"

#include "common/Log.h"

#include <QSettings>
#include <QString>

#include <algorithm>

namespace {

int readInt(const QSettings &store, const char *key, int fallback)
{
    return store.value(QLatin1String(key), fallback).toInt();
}

int readClamped(const QSettings &store, const char *key, int fallback, int low, int high)
{
    return std::clamp(readInt(store, key, fallback), low, high);
}

} // namespace

EditorSettings loadEditorSettings()
{
    const QSettings store(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
    EditorSettings s;
    s.brushSize = readInt(store, "brushSize", 8);
    s.tool = readClamped(store, "tool", 0, 0, 3);
    s.shapeType = readClamped(store, "shapeType", 0, 0, 9);
    s.shapeMode = readInt(store, "shapeMode", 0) < 1 ? 0 : 1;
    s.shapeErase = store.value(QStringLiteral("shapeErase"), false).toBool();
    const QColor color(store.value(QStringLiteral("color"), QStringLiteral("#000000")).toString());
    if (color.isValid())
        s.color = QColor(color.red(), color.green(), color.blue());
    s.opacity = readInt(store, "opacity", 100);
    s.fillTolerance = readClamped(store, "fillTolerance", 200, 0, 255);
    s.jitterAmount = readClamped(store, "jitterAmount", 50, 0, 100);
    s.jitterSpeed = readClamped(store, "jitterSpeed", 20, 0, 100);
    s.jitterEnabled = store.value(QStringLiteral("jitterEnabled"), false).toBool();
    s.previewOpacity = readClamped(store, "previewOpacity", 100, 0, 100);
    s.windowGeometry = store.value(QStringLiteral("windowGeometry")).toByteArray();
    return s;
}

void saveEditorSettings(const EditorSettings &s)
{
    QSettings store(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
    store.setValue(QStringLiteral("brushSize"), s.brushSize);
    store.setValue(QStringLiteral("tool"), s.tool);
    store.setValue(QStringLiteral("color"), s.color.name());
    store.setValue(QStringLiteral("opacity"), s.opacity);
    store.setValue(QStringLiteral("fillTolerance"), s.fillTolerance);
    store.setValue(QStringLiteral("jitterAmount"), s.jitterAmount);
    store.setValue(QStringLiteral("jitterSpeed"), s.jitterSpeed);
    store.setValue(QStringLiteral("jitterEnabled"), s.jitterEnabled);
    store.setValue(QStringLiteral("shapeType"), s.shapeType);
    store.setValue(QStringLiteral("shapeMode"), s.shapeMode);
    store.setValue(QStringLiteral("shapeErase"), s.shapeErase);
    store.setValue(QStringLiteral("previewOpacity"), s.previewOpacity);
    store.setValue(QStringLiteral("windowGeometry"), s.windowGeometry);
    store.sync();
    if (store.status() != QSettings::NoError)
        pdLog("[PD] Editor settings could not be written to %s",
              store.fileName().toUtf8().constData());
}
