#include "LogCapture.h"
#include "ReferenceComposite.h"

#include "engine/CanvasDocument.h"
#include "engine/StrokePainter.h"

#include <QRegularExpression>
#include <QtTest>

#include <random>

namespace {

QStringList compositeLines()
{
    QStringList out;
    for (QString line : LogCapture::lines())
        out << line.replace(QRegularExpression(" \\d+ ms"), " N ms");
    return out;
}

const QString Below = "[PD] SplitBelow: rebuilt %1 layers in N ms";
const QString Above = "[PD] SplitAbove: rebuilt %1 layers in N ms";
const QString Flat = "[PD] FlatComposite: rebuilt (3-blit) in N ms";

// Straight-alpha layer pixels of every kind, as files bring them: transparent
// words with colour left in them, opaque and translucent blobs, and
// antialiased translucent strokes.
QImage mixedLayer(int w, int h, std::mt19937 &rng)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    for (int blob = 0; blob < 12; ++blob) {
        const int x0 = int(rng() % unsigned(w)), y0 = int(rng() % unsigned(h));
        const int kind = int(rng() % 3);
        for (int y = y0; y < std::min(h, y0 + 1 + int(rng() % 90)); ++y)
            for (int x = x0; x < std::min(w, x0 + 60); ++x)
                reinterpret_cast<quint32 *>(image.scanLine(y))[x] = (kind == 0   ? 0u
                                                                     : kind == 1 ? 255u
                                                                                 : rng() % 256)
                                                                        << 24 |
                                                                    (rng() & 0xffffffu);
    }
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < 6; ++i) {
        painter.setPen(
            QPen(QColor(int(rng() % 256), int(rng() % 256), int(rng() % 256), int(rng() % 256)),
                 1 + rng() % 12));
        painter.drawLine(QPointF(rng() % unsigned(w), rng() % unsigned(h)),
                         QPointF(rng() % unsigned(w), rng() % unsigned(h)));
    }
    return image;
}

QList<CanvasLayer> mixedLayers(int count, int w, int h, std::mt19937 &rng)
{
    QList<CanvasLayer> layers(count);
    for (int i = 0; i < count; ++i) {
        layers[i].image = mixedLayer(w, h, rng);
        layers[i].opacity = i == 1 ? 0.7f : 1.0f;
    }
    return layers;
}

QImage reference(CanvasDocument &doc)
{
    const int active = doc.activeLayer();
    return referenceFlatComposite(doc.belowComposite(), doc.activeImage(), doc.layerVisible(active),
                                  doc.layerOpacity(active), doc.aboveComposite());
}

// The layers first..last drawn one by one with QPainter.
QImage referencePartial(const CanvasDocument &doc, int first, int last)
{
    QImage out(doc.size(), LayerFormat);
    out.fill(Qt::transparent);
    QPainter painter(&out);
    for (int i = first; i <= last; ++i) {
        painter.setOpacity(doc.layerVisible(i) ? doc.layerOpacity(i) : 0.0);
        painter.drawImage(0, 0, doc.layerImage(i));
    }
    return out;
}

} // namespace

class TestComposite : public QObject {
    Q_OBJECT

private slots:
    void logsAndCaching();
    void flatEqualsQPainterBlits_data();
    void flatEqualsQPainterBlits();
    void strokesRebuildOnlyTheirBounds_data();
    void strokesRebuildOnlyTheirBounds();
    void undersizedLayerFromSingleLoad();
};

// The log tells a full pass over the layers from a flat rebuild; a layer switch
// rebuilds the partials but not the flat image, a stroke's partial rebuild
// logs nothing.
void TestComposite::logsAndCaching()
{
    LogCapture log;
    CanvasDocument doc(16, 8);
    QImage flat = doc.flatComposite();
    QCOMPARE(compositeLines(), QStringList({Below.arg(0), Above.arg(0), Flat}));
    QCOMPARE(flat, QImage(doc.blankImage()));
    QCOMPARE(doc.belowComposite(), doc.blankImage());
    QCOMPARE(doc.aboveComposite(), doc.blankImage());

    log.clear();
    doc.flatComposite();
    doc.addLayer();
    doc.addLayer();
    doc.flatComposite();
    QCOMPARE(compositeLines(), QStringList({Below.arg(2), Above.arg(0), Flat}));
    log.clear();
    QPainter(&doc.activeImage()).fillRect(2, 2, 3, 3, Qt::red);
    doc.markPainted(QRect(2, 2, 3, 3));
    QCOMPARE(doc.flatComposite().pixel(3, 3), qRgb(255, 0, 0));
    QVERIFY(log.lines().isEmpty());

    log.clear();
    doc.setActiveLayer(0);
    doc.rebuildPartials();
    QVERIFY(!doc.compositeDirty());
    QCOMPARE(compositeLines(), QStringList({Below.arg(0), Above.arg(2)}));

    log.clear();
    doc.activeImage().fill(Qt::green);
    doc.markPainted();
    QCOMPARE(doc.flatComposite().pixel(15, 7), qRgb(0, 255, 0));
    QCOMPARE(compositeLines(), QStringList({Flat}));
}

void TestComposite::flatEqualsQPainterBlits_data()
{
    QTest::addColumn<int>("w");
    QTest::addColumn<int>("h");
    QTest::addColumn<int>("active");
    QTest::addColumn<float>("opacity");
    QTest::addColumn<bool>("visible");
    QTest::newRow("middle layer") << 300 << 200 << 2 << 1.0f << true;
    QTest::newRow("bottom layer, odd size") << 131 << 67 << 0 << 1.0f << true;
    QTest::newRow("top layer") << 200 << 130 << 4 << 1.0f << true;
    QTest::newRow("half opacity") << 300 << 200 << 1 << 0.5f << true;
    QTest::newRow("opacity 0") << 150 << 150 << 3 << 0.0f << true;
    QTest::newRow("hidden active") << 300 << 200 << 2 << 1.0f << false;
    QTest::newRow("1080p, on the pool") << 1920 << 1080 << 2 << 1.0f << true;
}

void TestComposite::flatEqualsQPainterBlits()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(int, active);
    QFETCH(float, opacity);
    QFETCH(bool, visible);
    std::mt19937 rng(uint(w * 31 + h + active));
    CanvasDocument doc(w, h);
    doc.setLayers(mixedLayers(5, w, h, rng), active);
    doc.setLayerOpacity(active, opacity);
    doc.setLayerVisible(active, visible);
    const QImage flat = doc.flatComposite(); // builds the partials the reference uses
    QCOMPARE(flat, reference(doc));
    QCOMPARE(doc.belowComposite(), referencePartial(doc, 0, active - 1));
    QCOMPARE(doc.aboveComposite(), referencePartial(doc, active + 1, 4));
}

void TestComposite::strokesRebuildOnlyTheirBounds_data()
{
    QTest::addColumn<float>("opacity");
    QTest::addColumn<bool>("eraser");
    QTest::newRow("brush") << 1.0f << false;
    QTest::newRow("brush at 0.6") << 0.6f << false;
    QTest::newRow("eraser") << 1.0f << true;
}

// Strokes marked with their bounds recompose only there; after each the flat
// image must equal the full blits, whether or not the last result is held
// (recomposed in place or on a copy).
void TestComposite::strokesRebuildOnlyTheirBounds()
{
    QFETCH(float, opacity);
    QFETCH(bool, eraser);
    const int w = 517, h = 263;
    std::mt19937 rng(77);
    CanvasDocument doc(w, h);
    doc.setLayers(mixedLayers(3, w, h, rng), 1);
    doc.setLayerOpacity(1, opacity);
    QImage held = doc.flatComposite(), heldCopy = held.copy();
    for (int i = 0; i < 25; ++i) {
        Stroke stroke;
        stroke.color = QColor(int(rng() % 256), int(rng() % 256), int(rng() % 256),
                              i % 3 ? 255 : int(rng() % 256));
        stroke.width = float(1 + rng() % 40);
        stroke.eraser = eraser && i % 2;
        for (int k = 0, n = 1 + int(rng() % 6); k < n; ++k)
            stroke.points.append(
                QPointF(int(rng() % unsigned(w + 40)) - 20, int(rng() % unsigned(h + 40)) - 20));
        paintStroke(doc.activeImage(), stroke, 0);
        doc.markPainted(strokeBounds(stroke, doc.size()));
        const QImage flat = doc.flatComposite();
        QCOMPARE(flat, reference(doc));
        QCOMPARE(held, heldCopy); // a result someone holds is never drawn over
        held = i % 2 ? flat : QImage();
        heldCopy = held.copy();
    }
    // A layer switch rebuilds the partials; the next small stroke still
    // gives the full result.
    doc.setActiveLayer(2);
    doc.rebuildPartials();
    QPainter(&doc.activeImage()).fillRect(5, 5, 8, 8, QColor(200, 10, 10, 128));
    doc.markPainted(QRect(5, 5, 8, 8));
    QCOMPARE(doc.flatComposite(), reference(doc));
}

void TestComposite::undersizedLayerFromSingleLoad()
{
    CanvasDocument doc(8, 8);
    QImage small(4, 4, QImage::Format_ARGB32);
    small.fill(Qt::red);
    doc.setStrokesAndImage({}, small);
    const QImage flat = doc.flatComposite();
    QCOMPARE(flat.size(), QSize(8, 8));
    QCOMPARE(flat.pixel(1, 1), qRgb(255, 0, 0));
    QCOMPARE(flat.pixel(6, 6), 0u);
}

QTEST_MAIN(TestComposite)
#include "tst_composite.moc"
