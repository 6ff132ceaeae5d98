#include "coop/CoopProtocol.h"
#include "coop/StrokeJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPainter>
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

QJsonObject with(const QString &key, const QJsonValue &value)
{
    QJsonObject o{{"pts", QJsonArray{1, 2}}};
    o.insert(key, value);
    return o;
}

QJsonArray numbers(int count)
{
    QJsonArray pts;
    for (int i = 0; i < count; ++i)
        pts.append(i % 7);
    return pts;
}

const double NaN = std::numeric_limits<double>::quiet_NaN();
const double Inf = std::numeric_limits<double>::infinity();

} // namespace

class TestCoopProtocol : public QObject {
    Q_OBJECT

private slots:
    void encodeFrameIsBigEndianCompactJson()
    {
        QCOMPARE(coop::encodeFrame(QJsonObject{{"t", "ping"}, {"ts", 5}}),
                 QByteArray("\x00\x00\x00\x13{\"t\":\"ping\",\"ts\":5}", 23));
    }

    // Split across reads or many in one read: each frame once, in order.
    void framesParsedOnceInOrder_data()
    {
        QTest::addColumn<int>("chunk");
        QTest::newRow("byte by byte") << 1;
        QTest::newRow("odd chunks") << 7;
        QTest::newRow("most at once") << 5000;
    }

    void framesParsedOnceInOrder()
    {
        QFETCH(int, chunk);
        QByteArray stream;
        for (int i = 0; i < 300; ++i)
            stream += coop::encodeFrame(QJsonObject{{"i", i}});
        FrameDecoder decoder(coop::MaxHostFramePayload);
        int next = 0;
        for (qsizetype at = 0; at < stream.size(); at += chunk) {
            decoder.append(stream.mid(at, chunk));
            QJsonObject message;
            Result last;
            while ((last = decoder.next(&message)) == Result::Message)
                QCOMPARE(message.value("i").toInt(), next++);
            QCOMPARE(last, Result::NeedMore);
        }
        QCOMPARE(next, 300);
        QCOMPARE(decoder.bufferedBytes(), 0);
    }

    // Exactly the limit passes; one more fails before anything announced is
    // buffered, and the decoder stays failed.
    void lengthLimit_data()
    {
        QTest::addColumn<quint32>("length");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("limit") << quint32(1000) << true;
        QTest::newRow("limit+1") << quint32(1001) << false;
        QTest::newRow("top bit") << quint32(0x80000000u) << false;
    }

    void lengthLimit()
    {
        QFETCH(quint32, length);
        QFETCH(bool, accepted);
        FrameDecoder decoder(1000);
        decoder.append(coop::encodeFrame(QJsonObject{{"t", "ok"}}) + prefix(length));
        QJsonObject message;
        QCOMPARE(decoder.next(&message), Result::Message);
        QCOMPARE(decoder.hasFrame(), !accepted);
        if (accepted) {
            decoder.append("{\"a\":\"" + QByteArray(int(length) - 8, 'x') + "\"}");
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
        QTest::newRow("string") << QByteArray("\"t\"");
        QTest::newRow("truncated") << QByteArray("{\"t\":\"stroke\"");
        QTest::newRow("bad utf8") << QByteArray("{\"t\":\"\xff\xfe\"}x");
    }

    void badPayloadIsViolation()
    {
        QFETCH(QByteArray, payload);
        FrameDecoder decoder(coop::MaxHostFramePayload);
        decoder.append(prefix(quint32(payload.size())) + payload +
                       coop::encodeFrame(QJsonObject{{"t", "after"}}));
        QJsonObject message;
        QCOMPARE(decoder.next(&message), Result::BadJson);
        QCOMPARE(decoder.next(&message), Result::BadJson);
    }

    void strokeRoundTrip()
    {
        Stroke s;
        s.points = {QPointF(1.5, 2.25), QPointF(-3, 1e5), QPointF(0.1, 1.0 / 3.0)};
        s.color = QColor::fromRgba(0x80FF2010u);
        s.width = 12.5f;
        s.eraser = s.shape = s.shapeErase = true;
        s.shapeType = ShapeHeart;
        s.shapeMode = 1;
        s.arrowDirection = 3;
        const QJsonObject o = coop::strokeToJson(s);
        QCOMPARE(o.keys().size(), 10);
        // Coordinates are written from 32-bit floats.
        QCOMPARE(o.value("pts").toArray(),
                 (QJsonArray{1.5, 2.25, -3, 100000, double(0.1f), double(float(1.0 / 3.0))}));
        QCOMPARE(o.value("col").toDouble(), double(0x80FF2010u));
        const QJsonObject wire = QJsonDocument::fromJson(QJsonDocument(o).toJson()).object();
        Stroke r;
        QVERIFY(coop::strokeFromJson(wire, &r));
        QCOMPARE(r.points.size(), 3);
        QCOMPARE(r.points.mid(0, 2), s.points.mid(0, 2));
        QCOMPARE(r.color.rgba(), 0x80FF2010u);
        QCOMPARE(r.width, 12.5f);
        QVERIFY(r.eraser && !r.fill && r.shape && r.shapeErase);
        QCOMPARE(r.shapeType, int(ShapeHeart));
        QCOMPARE(r.shapeMode, 1);
        QCOMPARE(r.arrowDirection, 3);
    }

    // What a peer sends is read into a stroke with defaults and clamps, or
    // rejected whole (and the target left untouched).
    void readsStroke_data()
    {
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QString>("field");
        QTest::addColumn<double>("expected");
        auto reject = [](const char *name, const QJsonValue &v) {
            QTest::newRow(name) << v << false << QString() << 0.0;
        };
        auto read = [](const char *name, const QJsonValue &v, const char *field, double e) {
            QTest::newRow(name) << v << true << QString(field) << e;
        };
        reject("missing pts", QJsonObject{{"w", 3}});
        reject("pts object", QJsonObject{{"pts", QJsonObject{}}});
        reject("array", QJsonArray{1, 2});
        reject("null", QJsonValue());
        reject("no points", QJsonObject{{"pts", numbers(0)}});
        reject("three numbers", QJsonObject{{"pts", numbers(3)}});
        reject("200001 points", QJsonObject{{"pts", numbers(400002)}});
        reject("nan coordinate", QJsonObject{{"pts", QJsonArray{1, 2, 3, NaN}}});
        reject("inf coordinate", QJsonObject{{"pts", QJsonArray{1, 2, -Inf, 4}}});
        read("200000 points", QJsonObject{{"pts", numbers(400000)}}, "points", 200000);
        read("coordinate clamp", QJsonObject{{"pts", QJsonArray{250000, -250000}}}, "x", 100000);
        read("non-number reads 0", QJsonObject{{"pts", QJsonArray{"x", true}}}, "x", 0);
        read("defaults: width", with("pts", QJsonArray{4, 5}), "w", 8);
        read("w 0", with("w", 0), "w", double(0.1f));
        read("w 5000", with("w", 5000), "w", 1000);
        read("w nan", with("w", NaN), "w", 8);
        read("st 12", with("st", 12), "st", 9);
        read("st -3", with("st", -3), "st", 0);
        read("sm 5", with("sm", 5), "sm", 1);
        read("sa -1", with("sa", -1), "sa", 0);
        read("sa 7", with("sa", 7), "sa", 3);
        read("col fraction", with("col", 255.9), "col", 0xFF);
        read("col negative", with("col", -1), "col", 0xFFFFFFFFu);
        read("col wraps", with("col", 4294967296.0 + 5), "col", 5);
    }

    void readsStroke()
    {
        QFETCH(QJsonValue, value);
        QFETCH(bool, accepted);
        QFETCH(QString, field);
        QFETCH(double, expected);
        Stroke r;
        r.width = 3;
        QCOMPARE(coop::strokeFromJson(value, &r), accepted);
        if (!accepted) {
            QVERIFY(r.points.isEmpty() && r.width == 3.0f);
            return;
        }
        const double got = field == "points" ? double(r.points.size())
                           : field == "x"    ? r.points[0].x()
                           : field == "col"  ? double(r.color.rgba())
                           : field == "w"    ? double(r.width)
                           : field == "st"   ? r.shapeType
                           : field == "sm"   ? r.shapeMode
                                             : r.arrowDirection;
        QCOMPARE(got, expected);
        QVERIFY(!r.eraser && !r.fill && !r.shape && !r.shapeErase);
    }

    void canvasPayloadRoundTrip()
    {
        QImage image(37, 21, QImage::Format_RGBA8888);
        image.fill(Qt::transparent);
        QPainter(&image).fillRect(3, 4, 10, 5, QColor(10, 200, 30, 128));
        const QString text = QString::fromLatin1(coop::encodeCanvas(image));
        QVERIFY(!text.contains('\n'));
        QVERIFY(QByteArray::fromBase64(text.toLatin1()).startsWith("\x89PNG"));
        QCOMPARE(coop::decodeCanvas(text).convertToFormat(QImage::Format_RGBA8888), image);
        QVERIFY(coop::decodeCanvas(QString()).isNull());
        QVERIFY(coop::decodeCanvas(text.left(text.size() / 2)).isNull());
    }

    void proposedPasswordsDiffer()
    {
        const QString first = coop::randomPassword();
        QVERIFY(QRegularExpression("^[a-z2-9]{10}$").match(first).hasMatch());
        QVERIFY(first != coop::randomPassword());
        QVERIFY(coop::randomBytes(16) != coop::randomBytes(16));
    }
};

QTEST_GUILESS_MAIN(TestCoopProtocol)
#include "tst_coop_protocol.moc"
