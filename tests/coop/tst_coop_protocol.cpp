#include "coop/CoopProtocol.h"
#include "coop/StrokeJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPainter>
#include <QRandomGenerator>
#include <QtEndian>
#include <QtTest>

#include <limits>

using coop::FrameDecoder;
using Result = FrameDecoder::Result;

namespace {

QByteArray prefix(quint32 length)
{
    QByteArray bytes(4, Qt::Uninitialized);
    qToBigEndian<quint32>(length, bytes.data());
    return bytes;
}

QByteArray rawFrame(const QByteArray &payload)
{
    return prefix(quint32(payload.size())) + payload;
}

QList<QJsonObject> drain(FrameDecoder &decoder, Result *last)
{
    QList<QJsonObject> out;
    QJsonObject message;
    Result r;
    while ((r = decoder.next(&message)) == Result::Message)
        out.append(message);
    *last = r;
    return out;
}

QJsonObject strokeWith(const QString &key, const QJsonValue &value)
{
    QJsonObject o{{"pts", QJsonArray{1, 2}}};
    o.insert(key, value);
    return o;
}

} // namespace

class TestCoopProtocol : public QObject {
    Q_OBJECT

private slots:
    void encodeFrameIsBigEndianCompactJson()
    {
        const QByteArray frame = coop::encodeFrame(QJsonObject{{"t", "ping"}, {"ts", 5}});
        const QByteArray payload = "{\"t\":\"ping\",\"ts\":5}";
        QCOMPARE(frame, QByteArray("\x00\x00\x00\x13", 4) + payload);
    }

    void splitFramesParsedOnceInOrder()
    {
        QByteArray stream;
        for (int i = 0; i < 50; ++i)
            stream += coop::encodeFrame(QJsonObject{{"t", "n"}, {"i", i}});
        FrameDecoder decoder(coop::MaxHostFramePayload);
        QList<int> seen;
        for (char c : stream) {
            decoder.append(QByteArray(1, c));
            Result last;
            for (const QJsonObject &o : drain(decoder, &last))
                seen.append(o.value("i").toInt());
            QCOMPARE(last, Result::NeedMore);
        }
        QCOMPARE(seen.size(), 50);
        for (int i = 0; i < 50; ++i)
            QCOMPARE(seen.at(i), i);
        QCOMPARE(decoder.bufferedBytes(), 0);
    }

    void manyFramesInOneRead()
    {
        QByteArray stream;
        for (int i = 0; i < 1000; ++i)
            stream += coop::encodeFrame(QJsonObject{{"i", i}});
        // Whole stream plus the first half of one more frame.
        const QByteArray extra = coop::encodeFrame(QJsonObject{{"i", 1000}});
        stream += extra.left(7);
        FrameDecoder decoder(coop::MaxHostFramePayload);
        decoder.append(stream);
        Result last;
        const QList<QJsonObject> got = drain(decoder, &last);
        QCOMPARE(last, Result::NeedMore);
        QCOMPARE(got.size(), 1000);
        for (int i = 0; i < 1000; ++i)
            QCOMPARE(got.at(i).value("i").toInt(), i);
        decoder.append(extra.mid(7));
        const QList<QJsonObject> rest = drain(decoder, &last);
        QCOMPARE(rest.size(), 1);
        QCOMPARE(rest.first().value("i").toInt(), 1000);
    }

    // Limits are the decoder's own: exactly the limit passes, one more fails
    // before anything announced is buffered.
    void lengthLimit_data()
    {
        QTest::addColumn<quint32>("length");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("limit") << quint32(1000) << true;
        QTest::newRow("limit+1") << quint32(1001) << false;
        QTest::newRow("top bit") << quint32(0x80000000u) << false;
        QTest::newRow("max") << quint32(0xFFFFFFFFu) << false;
    }

    void lengthLimit()
    {
        QFETCH(quint32, length);
        QFETCH(bool, accepted);
        QByteArray payload = "{\"a\":\"";
        payload += QByteArray(qMin<int>(int(length), 2000) - payload.size() - 2, 'x') + "\"}";
        FrameDecoder decoder(1000);
        // A good frame before the prefix is delivered whatever follows.
        decoder.append(coop::encodeFrame(QJsonObject{{"t", "ok"}}) + prefix(length));
        QJsonObject message;
        QCOMPARE(decoder.next(&message), Result::Message);
        QCOMPARE(decoder.hasFrame(), !accepted);
        if (accepted) {
            QCOMPARE(decoder.next(&message), Result::NeedMore);
            decoder.append(payload);
            QVERIFY(decoder.hasFrame());
            QCOMPARE(decoder.next(&message), Result::Message);
            QCOMPARE(message.value("a").toString().size(), qsizetype(length) - 8);
            return;
        }
        QCOMPARE(decoder.next(&message), Result::Oversize);
        QCOMPARE(decoder.bufferedBytes(), 0);
        decoder.append(coop::encodeFrame(QJsonObject{{"t", "late"}}));
        QCOMPARE(decoder.next(&message), Result::Oversize);
    }

    void badPayloadIsViolation_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::newRow("zero length") << QByteArray();
        QTest::newRow("not json") << QByteArray("hello");
        QTest::newRow("array") << QByteArray("[1,2]");
        QTest::newRow("number") << QByteArray("42");
        QTest::newRow("string") << QByteArray("\"t\"");
        QTest::newRow("truncated") << QByteArray("{\"t\":\"stroke\"");
        QTest::newRow("overflowing number") << QByteArray("{\"t\":1e999}");
        QTest::newRow("bad utf8") << QByteArray("{\"t\":\"\xff\xfe\"}x");
    }

    void badPayloadIsViolation()
    {
        QFETCH(QByteArray, payload);
        FrameDecoder decoder(coop::MaxHostFramePayload);
        decoder.append(rawFrame(payload) + coop::encodeFrame(QJsonObject{{"t", "after"}}));
        QJsonObject message;
        QCOMPARE(decoder.next(&message), Result::BadJson);
        QCOMPARE(decoder.next(&message), Result::BadJson);
    }

    void strokeRoundTrip()
    {
        Stroke s;
        s.points = {QPointF(1.5, 2.25), QPointF(-3, 1e5)};
        s.color = QColor::fromRgba(0x80FF2010u);
        s.width = 12.5f;
        s.eraser = true;
        s.shape = true;
        s.shapeType = ShapeHeart;
        s.shapeMode = 1;
        s.shapeErase = true;
        s.arrowDirection = 3;
        const QJsonObject o = coop::strokeToJson(s);
        QCOMPARE(o.keys().size(), 10);
        QCOMPARE(o.value("pts").toArray(), (QJsonArray{1.5, 2.25, -3, 100000}));
        QCOMPARE(o.value("col").toDouble(), double(0x80FF2010u));
        // Through real JSON text, as on the wire.
        const QJsonObject wire = QJsonDocument::fromJson(QJsonDocument(o).toJson()).object();
        Stroke r;
        QVERIFY(coop::strokeFromJson(wire, &r));
        QCOMPARE(r.points, s.points);
        QCOMPARE(r.color.rgba(), 0x80FF2010u);
        QCOMPARE(r.width, 12.5f);
        QVERIFY(r.eraser && !r.fill && r.shape && r.shapeErase);
        QCOMPARE(r.shapeType, int(ShapeHeart));
        QCOMPARE(r.shapeMode, 1);
        QCOMPARE(r.arrowDirection, 3);
    }

    void coordinatesWrittenAsFloats()
    {
        Stroke s;
        s.points = {QPointF(0.1, 1.0 / 3.0)};
        const QJsonArray pts = coop::strokeToJson(s).value("pts").toArray();
        QCOMPARE(pts.at(0).toDouble(), double(0.1f));
        QCOMPARE(pts.at(1).toDouble(), double(float(1.0 / 3.0)));
    }

    void missingKeysReadAsDefaults()
    {
        Stroke r;
        QVERIFY(coop::strokeFromJson(QJsonObject{{"pts", QJsonArray{4, 5}}}, &r));
        QCOMPARE(r.points, QVector<QPointF>{QPointF(4, 5)});
        QVERIFY(r.color.isValid());
        QCOMPARE(r.color.rgba(), 0u);
        QCOMPARE(r.width, 8.0f);
        QVERIFY(!r.eraser && !r.fill && !r.shape && !r.shapeErase);
        QCOMPARE(r.shapeType, 0);
        QCOMPARE(r.shapeMode, 0);
        QCOMPARE(r.arrowDirection, 0);
    }

    void pointCountBounds_data()
    {
        QTest::addColumn<int>("numbers");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("empty") << 0 << false;
        QTest::newRow("one number") << 1 << false;
        QTest::newRow("one point") << 2 << true;
        QTest::newRow("three numbers") << 3 << false;
        QTest::newRow("200000 points") << 400000 << true;
        QTest::newRow("200001 points") << 400002 << false;
    }

    void pointCountBounds()
    {
        QFETCH(int, numbers);
        QFETCH(bool, accepted);
        QJsonArray pts;
        for (int i = 0; i < numbers; ++i)
            pts.append(i % 7);
        Stroke r;
        r.width = 3;
        QCOMPARE(coop::strokeFromJson(QJsonObject{{"pts", pts}}, &r), accepted);
        QCOMPARE(r.points.size(), accepted ? numbers / 2 : 0);
        if (!accepted)
            QCOMPARE(r.width, 3.0f); // untouched
    }

    void notAStroke_data()
    {
        QTest::addColumn<QJsonValue>("value");
        QTest::newRow("missing pts") << QJsonValue(QJsonObject{{"w", 3}});
        QTest::newRow("pts object") << QJsonValue(QJsonObject{{"pts", QJsonObject{}}});
        QTest::newRow("pts string") << QJsonValue(QJsonObject{{"pts", "1,2"}});
        QTest::newRow("array") << QJsonValue(QJsonArray{1, 2});
        QTest::newRow("null") << QJsonValue();
        QTest::newRow("undefined") << QJsonValue(QJsonValue::Undefined);
    }

    void notAStroke()
    {
        QFETCH(QJsonValue, value);
        Stroke r;
        QVERIFY(!coop::strokeFromJson(value, &r));
    }

    void nonFiniteCoordinateRejects_data()
    {
        QTest::addColumn<double>("bad");
        QTest::newRow("nan") << std::numeric_limits<double>::quiet_NaN();
        QTest::newRow("+inf") << std::numeric_limits<double>::infinity();
        QTest::newRow("-inf") << -std::numeric_limits<double>::infinity();
    }

    void nonFiniteCoordinateRejects()
    {
        QFETCH(double, bad);
        Stroke r;
        QVERIFY(!coop::strokeFromJson(QJsonObject{{"pts", QJsonArray{1, 2, 3, bad}}}, &r));
        // A non-finite width is only defaulted.
        QVERIFY(coop::strokeFromJson(strokeWith("w", bad), &r));
        QCOMPARE(r.width, 8.0f);
    }

    void clamps_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<double>("expected");
        QTest::newRow("w 0") << "w" << QJsonValue(0) << double(0.1f);
        QTest::newRow("w -5") << "w" << QJsonValue(-5) << double(0.1f);
        QTest::newRow("w 5000") << "w" << QJsonValue(5000) << 1000.0;
        QTest::newRow("w 1000") << "w" << QJsonValue(1000) << 1000.0;
        QTest::newRow("w string") << "w" << QJsonValue("big") << 8.0;
        QTest::newRow("st 12") << "st" << QJsonValue(12) << 9.0;
        QTest::newRow("st -3") << "st" << QJsonValue(-3) << 0.0;
        QTest::newRow("st 1e10") << "st" << QJsonValue(1e10) << 9.0;
        QTest::newRow("st 4.7") << "st" << QJsonValue(4.7) << 4.0;
        QTest::newRow("sm 5") << "sm" << QJsonValue(5) << 1.0;
        QTest::newRow("sm -1") << "sm" << QJsonValue(-1) << 0.0;
        QTest::newRow("sa -1") << "sa" << QJsonValue(-1) << 0.0;
        QTest::newRow("sa 7") << "sa" << QJsonValue(7) << 3.0;
        QTest::newRow("sa 2") << "sa" << QJsonValue(2) << 2.0;
    }

    void clamps()
    {
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QFETCH(double, expected);
        Stroke r;
        QVERIFY(coop::strokeFromJson(strokeWith(key, value), &r));
        const double got = key == "w"    ? double(r.width)
                           : key == "st" ? r.shapeType
                           : key == "sm" ? r.shapeMode
                                         : r.arrowDirection;
        QCOMPARE(got, expected);
    }

    void coordinateClamps()
    {
        Stroke r;
        const QJsonArray pts{250000, -250000, 99999.5, "x", true, QJsonValue()};
        QVERIFY(coop::strokeFromJson(QJsonObject{{"pts", pts}}, &r));
        QCOMPARE(r.points,
                 (QVector<QPointF>{QPointF(100000, -100000), QPointF(99999.5, 0), QPointF(0, 0)}));
    }

    void colourConversion_data()
    {
        QTest::addColumn<QJsonValue>("col");
        QTest::addColumn<quint32>("argb");
        QTest::newRow("opaque red") << QJsonValue(double(0xFFFF0000u)) << 0xFFFF0000u;
        QTest::newRow("fraction") << QJsonValue(255.9) << 0x000000FFu;
        QTest::newRow("negative") << QJsonValue(-1) << 0xFFFFFFFFu;
        QTest::newRow("wraps") << QJsonValue(4294967296.0 + 5) << 5u;
        QTest::newRow("huge") << QJsonValue(1e300) << quint32(std::fmod(1e300, 4294967296.0));
        QTest::newRow("string") << QJsonValue("red") << 0u;
    }

    void colourConversion()
    {
        QFETCH(QJsonValue, col);
        QFETCH(quint32, argb);
        Stroke r;
        QVERIFY(coop::strokeFromJson(strokeWith("col", col), &r));
        QCOMPARE(r.color.rgba(), argb);
    }

    void canvasPayloadRoundTrip()
    {
        QImage image(37, 21, QImage::Format_RGBA8888);
        image.fill(Qt::transparent);
        QPainter(&image).fillRect(3, 4, 10, 5, QColor(10, 200, 30, 128));
        const QString text = QString::fromLatin1(coop::encodeCanvas(image));
        QVERIFY(!text.contains('\n'));
        QVERIFY(QByteArray::fromBase64(text.toLatin1()).startsWith("\x89PNG"));
        const QImage back = coop::decodeCanvas(text).convertToFormat(QImage::Format_RGBA8888);
        QCOMPARE(back, image);
        QVERIFY(coop::decodeCanvas(QString()).isNull());
        QVERIFY(coop::decodeCanvas("not base64 png!").isNull());
        QVERIFY(coop::decodeCanvas(text.left(text.size() / 2)).isNull());
    }

    void sameBytes_data()
    {
        QTest::addColumn<QByteArray>("a");
        QTest::addColumn<QByteArray>("b");
        QTest::addColumn<bool>("same");
        QTest::newRow("equal") << QByteArray("proof-of-key") << QByteArray("proof-of-key") << true;
        QTest::newRow("last byte")
            << QByteArray("proof-of-key") << QByteArray("proof-of-kez") << false;
        QTest::newRow("first byte") << QByteArray("proof") << QByteArray("xroof") << false;
        QTest::newRow("prefix") << QByteArray("proof") << QByteArray("proof-of-key") << false;
        QTest::newRow("empty") << QByteArray() << QByteArray("p") << false;
    }

    void sameBytes()
    {
        QFETCH(QByteArray, a);
        QFETCH(QByteArray, b);
        QFETCH(bool, same);
        QCOMPARE(coop::sameBytes(a, b), same);
    }

    void proposedPasswordsDiffer()
    {
        const QString first = coop::randomPassword(), second = coop::randomPassword();
        QCOMPARE(first.size(), 10);
        QVERIFY(first != second);
        QVERIFY(QRegularExpression("^[a-z2-9]+$").match(first).hasMatch());
        QVERIFY(coop::randomBytes(16) != coop::randomBytes(16));
    }

    // Random and mutated byte streams: the decoder must never crash, never
    // deliver anything after a violation, and stop buffering at the limit.
    void fuzzDecoder()
    {
        QRandomGenerator rng(20240611);
        QList<QByteArray> seeds;
        Stroke s;
        s.points = {QPointF(1, 2), QPointF(3, 4)};
        s.color = Qt::red;
        seeds << coop::encodeFrame(QJsonObject{{"t", "stroke"}, {"stroke", coop::strokeToJson(s)}})
              << coop::encodeFrame(QJsonObject{{"t", "hello"}, {"nick", "ann"}, {"ver", 2}})
              << coop::encodeFrame(QJsonObject{{"t", "pong"}, {"ts", 1234567890123.0}});
        int messages = 0, violations = 0;
        for (int round = 0; round < 4000; ++round) {
            QByteArray stream;
            const int kind = rng.bounded(3);
            if (kind == 0) {
                stream.resize(rng.bounded(1, 300));
                for (char &c : stream)
                    c = char(rng.bounded(256));
            } else {
                for (int n = rng.bounded(1, 6); n > 0; --n)
                    stream += seeds.at(rng.bounded(seeds.size()));
                for (int m = rng.bounded(kind == 1 ? 1 : 8); m > 0; --m) {
                    const int at = rng.bounded(stream.size());
                    switch (rng.bounded(3)) {
                    case 0:
                        stream[at] = char(rng.bounded(256));
                        break;
                    case 1:
                        stream.remove(at, 1);
                        break;
                    default:
                        stream.insert(at, char(rng.bounded(256)));
                        break;
                    }
                }
            }
            FrameDecoder decoder(coop::MaxHostFramePayload);
            bool failed = false;
            qsizetype pos = 0;
            while (pos < stream.size()) {
                const int chunk = rng.bounded(1, 64);
                decoder.append(stream.mid(pos, chunk));
                pos += chunk;
                QJsonObject message;
                Result r;
                while ((r = decoder.next(&message)) == Result::Message) {
                    QVERIFY(!failed);
                    ++messages;
                    Stroke out;
                    coop::strokeFromJson(message.value("stroke"), &out);
                }
                if (r != Result::NeedMore) {
                    failed = true;
                    ++violations;
                    QCOMPARE(decoder.bufferedBytes(), 0);
                    break;
                }
                QVERIFY(decoder.bufferedBytes() <= qsizetype(coop::MaxHostFramePayload) + 4);
            }
        }
        QVERIFY(messages > 1000);
        QVERIFY(violations > 1000);
    }
};

QTEST_GUILESS_MAIN(TestCoopProtocol)
#include "tst_coop_protocol.moc"
