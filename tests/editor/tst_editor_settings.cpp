// The "Canvas" store as the editor reads and writes it: clamps on read,
// every key written, the later save winning.
#include "LogCapture.h"

#include "settings/EditorSettings.h"
#include "settings/SettingsKeys.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

// Every field as text, by its store key, so rows can name one and a
// round trip can compare them all.
QMap<QString, QString> fields(const EditorSettings &s)
{
    return {{"brushSize", QString::number(s.brushSize)},
            {"tool", QString::number(s.tool)},
            {"shapeType", QString::number(s.shapeType)},
            {"shapeMode", QString::number(s.shapeMode)},
            {"shapeErase", s.shapeErase ? "true" : "false"},
            {"color", s.color.name(QColor::HexArgb)},
            {"opacity", QString::number(s.opacity)},
            {"fillTolerance", QString::number(s.fillTolerance)},
            {"jitterAmount", QString::number(s.jitterAmount)},
            {"jitterSpeed", QString::number(s.jitterSpeed)},
            {"jitterEnabled", s.jitterEnabled ? "true" : "false"},
            {"previewOpacity", QString::number(s.previewOpacity)},
            {"windowGeometry", QString::fromLatin1(s.windowGeometry.toHex())}};
}

} // namespace

class TestEditorSettings : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void storedValueRead_data();
    void storedValueRead();
    void saveWritesEveryKeyAndLastSaveWins();

private:
    QTemporaryDir m_dir;
    LogCapture m_log;
};

void TestEditorSettings::initTestCase()
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_dir.path());
    QVERIFY(openSettings(SettingsStore::Canvas).fileName().startsWith(m_dir.path()));
}

void TestEditorSettings::init()
{
    openSettings(SettingsStore::Canvas).clear();
}

void TestEditorSettings::storedValueRead_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("read");
    QTest::newRow("tool 7 is Shapes") << "tool" << QVariant(7) << "3";
    QTest::newRow("tool -2 is Brush") << "tool" << QVariant(-2) << "0";
    QTest::newRow("tool not a number") << "tool" << QVariant("pen") << "0";
    QTest::newRow("shapeType 12") << "shapeType" << QVariant(12) << "9";
    QTest::newRow("shapeMode 5 is Outline") << "shapeMode" << QVariant(5) << "1";
    QTest::newRow("shapeMode -1 is Filled") << "shapeMode" << QVariant(-1) << "0";
    QTest::newRow("shapeErase") << "shapeErase" << QVariant(true) << "true";
    QTest::newRow("color") << "color" << QVariant("#12ab5f") << "#ff12ab5f";
    QTest::newRow("color five digits ignored") << "color" << QVariant("#12345") << "#ff000000";
    QTest::newRow("color alpha dropped") << "color" << QVariant("#80ff0000") << "#ffff0000";
    QTest::newRow("opacity not clamped") << "opacity" << QVariant(250) << "250";
    QTest::newRow("fillTolerance 999") << "fillTolerance" << QVariant(999) << "255";
    QTest::newRow("fillTolerance -5") << "fillTolerance" << QVariant(-5) << "0";
    QTest::newRow("jitterAmount 101") << "jitterAmount" << QVariant(101) << "100";
    QTest::newRow("jitterSpeed -3") << "jitterSpeed" << QVariant(-3) << "0";
    QTest::newRow("jitterSpeed 60") << "jitterSpeed" << QVariant(60) << "60";
    QTest::newRow("jitterEnabled") << "jitterEnabled" << QVariant(true) << "true";
    QTest::newRow("previewOpacity 130") << "previewOpacity" << QVariant(130) << "100";
    QTest::newRow("previewOpacity -9") << "previewOpacity" << QVariant(-9) << "0";
    QTest::newRow("brushSize 0 not clamped") << "brushSize" << QVariant(0) << "0";
    QTest::newRow("windowGeometry")
        << "windowGeometry" << QVariant(QByteArray("\x01\xd9\xd0", 3)) << "01d9d0";
}

// Fault: a clamp is missing or off by one, a key is read under another name,
// or one key's value leaks into another field.
void TestEditorSettings::storedValueRead()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    openSettings(SettingsStore::Canvas).setValue(key, stored);
    QMap<QString, QString> expected = fields(EditorSettings());
    QFETCH(QString, read);
    expected[key] = read;
    QCOMPARE(fields(loadEditorSettings()), expected);
    if (key.startsWith("jitter")) {
        const WiggleSettings wiggle = loadWiggleSettings();
        const EditorSettings editor = loadEditorSettings();
        QCOMPARE(wiggle.enabled, editor.jitterEnabled);
        QCOMPARE(wiggle.amount, editor.jitterAmount);
        QCOMPARE(wiggle.speed, editor.jitterSpeed);
    }
}

// Fault: a key is not written, written under another name or type, or the
// first of two closing editors decides a key.
void TestEditorSettings::saveWritesEveryKeyAndLastSaveWins()
{
    EditorSettings first;
    first.tool = 1;
    first.jitterAmount = 10;
    first.windowGeometry = "first";
    saveEditorSettings(first);
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
    QCOMPARE(fields(loadEditorSettings()), fields(s));
    const QSettings raw = openSettings(SettingsStore::Canvas);
    QCOMPARE(raw.allKeys().size(), fields(s).size());
    QCOMPARE(raw.value("color").toString(), QString("#123456"));
    QVERIFY(LogCapture::lines().isEmpty());
}

QTEST_GUILESS_MAIN(TestEditorSettings)
#include "tst_editor_settings.moc"
