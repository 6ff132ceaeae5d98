#include "LogCapture.h"

#include "settings/EditorSettings.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

namespace {

QSettings store()
{
    return QSettings(QStringLiteral("PennoriaDraw"), QStringLiteral("Canvas"));
}

void compareAll(const EditorSettings &a, const EditorSettings &b)
{
    QCOMPARE(a.brushSize, b.brushSize);
    QCOMPARE(a.tool, b.tool);
    QCOMPARE(a.shapeType, b.shapeType);
    QCOMPARE(a.shapeMode, b.shapeMode);
    QCOMPARE(a.shapeErase, b.shapeErase);
    QCOMPARE(a.color, b.color);
    QCOMPARE(a.opacity, b.opacity);
    QCOMPARE(a.fillTolerance, b.fillTolerance);
    QCOMPARE(a.jitterAmount, b.jitterAmount);
    QCOMPARE(a.jitterSpeed, b.jitterSpeed);
    QCOMPARE(a.jitterEnabled, b.jitterEnabled);
    QCOMPARE(a.previewOpacity, b.previewOpacity);
    QCOMPARE(a.windowGeometry, b.windowGeometry);
}

// The value of one field by its store key, as text, so rows can name it.
QString field(const EditorSettings &s, const QString &key)
{
    if (key == "brushSize")
        return QString::number(s.brushSize);
    if (key == "tool")
        return QString::number(s.tool);
    if (key == "shapeType")
        return QString::number(s.shapeType);
    if (key == "shapeMode")
        return QString::number(s.shapeMode);
    if (key == "shapeErase")
        return s.shapeErase ? "true" : "false";
    if (key == "color")
        return s.color.name(QColor::HexArgb);
    if (key == "opacity")
        return QString::number(s.opacity);
    if (key == "fillTolerance")
        return QString::number(s.fillTolerance);
    if (key == "jitterAmount")
        return QString::number(s.jitterAmount);
    if (key == "jitterSpeed")
        return QString::number(s.jitterSpeed);
    if (key == "jitterEnabled")
        return s.jitterEnabled ? "true" : "false";
    if (key == "previewOpacity")
        return QString::number(s.previewOpacity);
    if (key == "windowGeometry")
        return QString::fromLatin1(s.windowGeometry.toHex());
    return "?";
}

} // namespace

class TestEditorSettings : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void defaultsWhenEmpty();
    void storedValueRead_data();
    void storedValueRead();
    void brushSizeZeroShownAsOne();
    void roundTrip();
    void writesEveryKeyWithItsType();
    void lastSaveWins();

private:
    QTemporaryDir m_dir;
    LogCapture m_log;
};

void TestEditorSettings::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_dir.path());
    QVERIFY(store().fileName().startsWith(m_dir.path()));
}

void TestEditorSettings::init()
{
    QSettings s = store();
    s.clear();
    s.sync();
    LogCapture::clear();
}

void TestEditorSettings::defaultsWhenEmpty()
{
    compareAll(loadEditorSettings(), EditorSettings());
    const EditorSettings s = loadEditorSettings();
    QCOMPARE(s.brushSize, 8);
    QCOMPARE(s.tool, 0);
    QCOMPARE(s.color, QColor(Qt::black));
    QCOMPARE(s.opacity, 100);
    QCOMPARE(s.fillTolerance, 200);
    QCOMPARE(s.jitterAmount, 50);
    QCOMPARE(s.jitterSpeed, 20);
    QCOMPARE(s.jitterEnabled, false);
    QCOMPARE(s.previewOpacity, 100);
    QVERIFY(s.windowGeometry.isEmpty());
}

void TestEditorSettings::storedValueRead_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("read");

    QTest::newRow("tool 7 is Shapes") << "tool" << QVariant(7) << "3";
    QTest::newRow("tool -2 is Brush") << "tool" << QVariant(-2) << "0";
    QTest::newRow("tool 2") << "tool" << QVariant(2) << "2";
    QTest::newRow("tool not a number") << "tool" << QVariant("pen") << "0";
    QTest::newRow("shapeType 12") << "shapeType" << QVariant(12) << "9";
    QTest::newRow("shapeType -1") << "shapeType" << QVariant(-1) << "0";
    QTest::newRow("shapeType 8") << "shapeType" << QVariant(8) << "8";
    QTest::newRow("shapeMode 5 is Outline") << "shapeMode" << QVariant(5) << "1";
    QTest::newRow("shapeMode -1 is Filled") << "shapeMode" << QVariant(-1) << "0";
    QTest::newRow("shapeMode 1") << "shapeMode" << QVariant(1) << "1";
    QTest::newRow("shapeErase") << "shapeErase" << QVariant(true) << "true";
    QTest::newRow("color") << "color" << QVariant("#12ab5f") << "#ff12ab5f";
    QTest::newRow("color five digits stays black") << "color" << QVariant("#12345") << "#ff000000";
    QTest::newRow("color garbage stays black") << "color" << QVariant("blue-ish") << "#ff000000";
    QTest::newRow("color alpha dropped") << "color" << QVariant("#80ff0000") << "#ffff0000";
    QTest::newRow("color empty stays black") << "color" << QVariant("") << "#ff000000";
    QTest::newRow("opacity not clamped") << "opacity" << QVariant(250) << "250";
    QTest::newRow("opacity 0") << "opacity" << QVariant(0) << "0";
    QTest::newRow("fillTolerance 999") << "fillTolerance" << QVariant(999) << "255";
    QTest::newRow("fillTolerance -5") << "fillTolerance" << QVariant(-5) << "0";
    QTest::newRow("fillTolerance text") << "fillTolerance" << QVariant("lots") << "0";
    QTest::newRow("fillTolerance 30") << "fillTolerance" << QVariant(30) << "30";
    QTest::newRow("jitterAmount 101") << "jitterAmount" << QVariant(101) << "100";
    QTest::newRow("jitterAmount -1") << "jitterAmount" << QVariant(-1) << "0";
    QTest::newRow("jitterSpeed 400") << "jitterSpeed" << QVariant(400) << "100";
    QTest::newRow("jitterSpeed -3") << "jitterSpeed" << QVariant(-3) << "0";
    QTest::newRow("jitterEnabled") << "jitterEnabled" << QVariant(true) << "true";
    QTest::newRow("previewOpacity 130") << "previewOpacity" << QVariant(130) << "100";
    QTest::newRow("previewOpacity -9") << "previewOpacity" << QVariant(-9) << "0";
    QTest::newRow("brushSize 0 not clamped") << "brushSize" << QVariant(0) << "0";
    QTest::newRow("brushSize 20000 not clamped") << "brushSize" << QVariant(20000) << "20000";
    QTest::newRow("brushSize -4 not clamped") << "brushSize" << QVariant(-4) << "-4";
    QTest::newRow("windowGeometry")
        << "windowGeometry" << QVariant(QByteArray("\x01\xd9\xd0", 3)) << "01d9d0";
}

void TestEditorSettings::storedValueRead()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(QString, read);

    {
        QSettings s = store();
        s.setValue(key, stored);
    }
    const EditorSettings loaded = loadEditorSettings();
    QCOMPARE(field(loaded, key), read);

    // Every other key keeps its default.
    const EditorSettings defaults;
    for (const char *other : {"brushSize", "tool", "shapeType", "shapeMode", "shapeErase", "color",
                              "opacity", "fillTolerance", "jitterAmount", "jitterSpeed",
                              "jitterEnabled", "previewOpacity", "windowGeometry"}) {
        if (key != QLatin1String(other))
            QCOMPARE(field(loaded, other), field(defaults, other));
    }
}

void TestEditorSettings::brushSizeZeroShownAsOne()
{
    {
        QSettings s = store();
        s.setValue("brushSize", 0);
    }
    const EditorSettings loaded = loadEditorSettings();
    QCOMPARE(loaded.brushSize, 0); // what the canvas gets
    QCOMPARE(std::clamp(loaded.brushSize, BrushSpinMinimum, BrushSpinMaximum), 1);
    QCOMPARE(std::clamp(loaded.brushSize, BrushSpinMinimum, BrushSliderMaximum), 1);
}

void TestEditorSettings::roundTrip()
{
    EditorSettings s;
    s.brushSize = 400;
    s.tool = 3;
    s.shapeType = 7;
    s.shapeMode = 1;
    s.shapeErase = true;
    s.color = QColor(0x12, 0x34, 0x56);
    s.opacity = 42;
    s.fillTolerance = 17;
    s.jitterAmount = 99;
    s.jitterSpeed = 0;
    s.jitterEnabled = true;
    s.previewOpacity = 35;
    s.windowGeometry = QByteArray("\x00\x01geometry\xff", 11);
    saveEditorSettings(s);
    compareAll(loadEditorSettings(), s);
    QVERIFY(LogCapture::lines().isEmpty());
}

void TestEditorSettings::writesEveryKeyWithItsType()
{
    EditorSettings s;
    s.color = QColor(255, 128, 0, 40); // alpha is not part of the stored name
    s.windowGeometry = "geo";
    saveEditorSettings(s);

    QSettings raw = store();
    QStringList keys = raw.allKeys();
    keys.sort();
    QCOMPARE(keys, QStringList({"brushSize", "color", "fillTolerance", "jitterAmount",
                                "jitterEnabled", "jitterSpeed", "opacity", "previewOpacity",
                                "shapeErase", "shapeMode", "shapeType", "tool", "windowGeometry"}));
    QCOMPARE(raw.value("color").toString(), QString("#ff8000"));
    QCOMPARE(raw.value("brushSize").toInt(), 8);
    QCOMPARE(raw.value("fillTolerance").toInt(), 200);
    QCOMPARE(raw.value("jitterEnabled").toBool(), false);
    QCOMPARE(raw.value("windowGeometry").toByteArray(), QByteArray("geo"));
}

void TestEditorSettings::lastSaveWins()
{
    EditorSettings first;
    first.tool = 1;
    first.jitterAmount = 10;
    EditorSettings second;
    second.tool = 2;
    saveEditorSettings(first);
    saveEditorSettings(second);
    compareAll(loadEditorSettings(), second);
}

QTEST_GUILESS_MAIN(TestEditorSettings)
#include "tst_editor_settings.moc"
