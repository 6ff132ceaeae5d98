#include "settings/EditorSettings.h"

#include "common/Log.h"
#include "common/Wiggle.h"
#include "settings/SettingsKeys.h"

#include <QSettings>
#include <QString>

namespace Keys = SettingsKeys;

namespace {

QString name(const char *key)
{
    return QLatin1String(key);
}

template <typename Key> QString name(const Key &key)
{
    return QLatin1String(key.name);
}

WiggleSettings readWiggle(const QSettings &store)
{
    WiggleSettings w;
    w.enabled = readSetting(store, Keys::JitterEnabled);
    w.amount = readSetting(store, Keys::JitterAmount);
    w.speed = readSetting(store, Keys::JitterSpeed);
    return w;
}

} // namespace

float WiggleSettings::amountPx() const
{
    return wiggleAmountPxFromSetting(amount);
}

float WiggleSettings::intervalSeconds() const
{
    return 1.0f / float(wiggleFramesPerSecondFromSetting(speed));
}

WiggleSettings loadWiggleSettings()
{
    return readWiggle(openSettings(SettingsStore::Canvas));
}

void saveWiggleEnabled(bool enabled)
{
    openSettings(SettingsStore::Canvas).setValue(name(Keys::JitterEnabled), enabled);
}

EditorSettings loadEditorSettings()
{
    const QSettings store = openSettings(SettingsStore::Canvas);
    EditorSettings s;
    s.brushSize = readSetting(store, Keys::BrushSize);
    s.tool = readSetting(store, Keys::Tool);
    s.shapeType = readSetting(store, Keys::ShapeType);
    s.shapeMode = readSetting(store, Keys::ShapeMode);
    s.shapeErase = readSetting(store, Keys::ShapeErase);
    const QColor color(store.value(name(Keys::Color), QStringLiteral("#000000")).toString());
    if (color.isValid())
        s.color = QColor(color.red(), color.green(), color.blue());
    s.opacity = readSetting(store, Keys::Opacity);
    s.fillTolerance = readSetting(store, Keys::FillTolerance);
    const WiggleSettings wiggle = readWiggle(store);
    s.jitterAmount = wiggle.amount;
    s.jitterSpeed = wiggle.speed;
    s.jitterEnabled = wiggle.enabled;
    s.previewOpacity = readSetting(store, Keys::PreviewOpacity);
    s.windowGeometry = store.value(name(Keys::WindowGeometry)).toByteArray();
    return s;
}

void saveEditorSettings(const EditorSettings &s)
{
    QSettings store = openSettings(SettingsStore::Canvas);
    store.setValue(name(Keys::BrushSize), s.brushSize);
    store.setValue(name(Keys::Tool), s.tool);
    store.setValue(name(Keys::Color), s.color.name());
    store.setValue(name(Keys::Opacity), s.opacity);
    store.setValue(name(Keys::FillTolerance), s.fillTolerance);
    store.setValue(name(Keys::JitterAmount), s.jitterAmount);
    store.setValue(name(Keys::JitterSpeed), s.jitterSpeed);
    store.setValue(name(Keys::JitterEnabled), s.jitterEnabled);
    store.setValue(name(Keys::ShapeType), s.shapeType);
    store.setValue(name(Keys::ShapeMode), s.shapeMode);
    store.setValue(name(Keys::ShapeErase), s.shapeErase);
    store.setValue(name(Keys::PreviewOpacity), s.previewOpacity);
    store.setValue(name(Keys::WindowGeometry), s.windowGeometry);
    store.sync();
    if (store.status() != QSettings::NoError)
        pdLog("[PD] Editor settings could not be written to %s",
              store.fileName().toUtf8().constData());
}
