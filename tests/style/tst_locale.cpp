// Faults caught: a typo'd key in the sources (the user sees the raw key), a
// key left in en-US.ini after its text went (it misleads translators), a key
// written twice, and the built-in English losing a non-ASCII character or a
// line break.
#include "common/Text.h"

#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

class TestLocale : public QObject {
    Q_OBJECT
private slots:
    void everyKeyUsedIsDefinedAndEveryDefinedKeyIsUsed();
    void builtInEnglish_data();
    void builtInEnglish();
};

void TestLocale::everyKeyUsedIsDefinedAndEveryDefinedKeyIsUsed()
{
    QFile ini(QStringLiteral(PD_SOURCE_DIR "/data/locale/en-US.ini"));
    QVERIFY(ini.open(QIODevice::ReadOnly | QIODevice::Text));
    QSet<QString> defined;
    static const QRegularExpression entry(QStringLiteral("^([A-Za-z0-9.]+)=\"(.*)\"$"));
    while (!ini.atEnd()) {
        const QString line = QString::fromUtf8(ini.readLine()).trimmed();
        const QRegularExpressionMatch match = entry.match(line);
        QVERIFY2(match.hasMatch(), qPrintable(line));
        QVERIFY2(!defined.contains(match.captured(1)), qPrintable(line));
        defined.insert(match.captured(1));
    }

    QSet<QString> used;
    static const QRegularExpression call(
        QStringLiteral("\\b(?:uiText|obs_module_text)\\(\\s*\"([^\"]+)\"\\s*\\)"));
    QDirIterator files(QStringLiteral(PD_SOURCE_DIR "/src"), {"*.cpp", "*.h"}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString code = QString::fromUtf8(file.readAll());
        for (const QRegularExpressionMatch &match : call.globalMatch(code))
            used.insert(match.captured(1));
    }
    QVERIFY(used.size() > 50);
    const QStringList undefined = (used - defined).values();
    const QStringList unused = (defined - used).values();
    QVERIFY2(undefined.isEmpty(), qPrintable("not in en-US.ini: " + undefined.join(' ')));
    QVERIFY2(unused.isEmpty(), qPrintable("never used: " + unused.join(' ')));
}

void TestLocale::builtInEnglish_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("english");
    QTest::newRow("em dash") << QByteArray("Editor.Title")
                             << QString::fromUtf8("Pennoria Canvas \u2014 Draw");
    QTest::newRow("placeholder") << QByteArray("Users.Ping") << QString("%1 ms");
    QTest::newRow("two lines")
        << QByteArray("Coop.ConfirmStopHosting")
        << QString("Stop hosting the co-op session?\nAll joiners will be disconnected.");
    QTest::newRow("unknown key") << QByteArray("No.Such.Key") << QString("No.Such.Key");
}

void TestLocale::builtInEnglish()
{
    QFETCH(QByteArray, key);
    QFETCH(QString, english);
    QCOMPARE(uiText(key.constData()), english);
    setTextLookup([](const char *) { return "\xC3\xA9t\xC3\xA9"; });
    QCOMPARE(uiText(key.constData()), QString::fromUtf8("\u00e9t\u00e9"));
    setTextLookup(nullptr);
    QCOMPARE(uiText(key.constData()), english);
}

QTEST_GUILESS_MAIN(TestLocale)
#include "tst_locale.moc"
