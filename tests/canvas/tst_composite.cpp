#include "LogCapture.h"
#include "ReferenceComposite.h"

#include "engine/CanvasDocument.h"
#include "engine/StrokePainter.h"

#include <QPainter>
#include <QRegularExpression>
#include <QtTest>

#include <random>

namespace {

void fillLayer(CanvasDocument &doc, int index, const QRect &rect, QColor color)
{
    const int active = doc.activeLayer();
    doc.setActiveLayer(index);
    QPainter painter(&doc.activeImage());
    painter.fillRect(rect, color);
    painter.end();
    doc.markPainted();
    doc.setActiveLayer(active);
}

QImage over(const QList<QImage> &images)
{
    QImage out(images.first().size(), QImage::Format_RGBA8888);
    out.fill(Qt::transparent);
    QPainter painter(&out);
    for (const QImage &image : images)
        painter.drawImage(0, 0, image);
    return out;
}

bool isTransparent(const QImage &image)
{
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (qAlpha(image.pixel(x, y)) != 0)
                return false;
    return true;
}

QStringList compositeLines(const LogCapture &log)
{
    QStringList out;
    for (const QString &line : log.lines()) {
        QString normalised = line;
        normalised.replace(QRegularExpression(" \\d+ ms"), " N ms");
        out << normalised;
    }
    return out;
}

// Layer pixels of every kind: transparent words with colour left in them,
// opaque, and translucent ones, in blobs so that whole tiles are alike, plus
// antialiased strokes.
QImage mixedLayer(int w, int h, std::mt19937 &rng)
{
    QImage image(w, h, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
    for (int blob = 0; blob < 12; ++blob) {
        const int x0 = int(rng() % unsigned(w)), y0 = int(rng() % unsigned(h));
        const int bw = 1 + int(rng() % 90), bh = 1 + int(rng() % 90);
        const int kind = int(rng() % 3);
        for (int y = y0; y < std::min(h, y0 + bh); ++y) {
            auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
            for (int x = x0; x < std::min(w, x0 + bw); ++x) {
                const quint32 colour = rng() & 0x00ffffffu;
                const quint32 alpha = kind == 0 ? 0u : kind == 1 ? 255u : rng() % 256;
                line[x] = alpha << 24 | colour;
            }
        }
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

} // namespace

class TestComposite : public QObject {
    Q_OBJECT

private slots:
    void singleLayerLogsZeroLayers();
    void flatIsCachedUntilPainted();
    void hiddenActiveLayerIsBelowPlusAbove();
    void halfOpacityHalvesAlpha();
    void switchingLayersRebuildsPartialsNotFlat();
    void structuralChangesRebuildEverything();
    void undersizedLayerFromSingleLoad();
    void flatEqualsThreeQPainterBlits_data();
    void flatEqualsThreeQPainterBlits();
    void partialRebuildEqualsFullBlits_data();
    void partialRebuildEqualsFullBlits();
    void partialRebuildFollowsPartials();
};

void TestComposite::singleLayerLogsZeroLayers()
{
    LogCapture log;
    CanvasDocument doc(16, 8);
    const QImage flat = doc.flatComposite();
    QCOMPARE(compositeLines(log), QStringList({"[PD] SplitBelow: rebuilt 0 layers in N ms",
                                               "[PD] SplitAbove: rebuilt 0 layers in N ms",
                                               "[PD] FlatComposite: rebuilt (3-blit) in N ms"}));
    QCOMPARE(doc.belowComposite().size(), QSize(16, 8));
    QCOMPARE(doc.belowComposite().format(), QImage::Format_RGBA8888);
    QVERIFY(isTransparent(doc.belowComposite()));
    QVERIFY(isTransparent(doc.aboveComposite()));
    QVERIFY(isTransparent(flat));
    QCOMPARE(flat.format(), QImage::Format_RGBA8888);
    QVERIFY(!doc.compositeDirty());
}

void TestComposite::flatIsCachedUntilPainted()
{
    CanvasDocument doc(8, 8);
    doc.flatComposite();
    LogCapture log;
    doc.flatComposite();
    QVERIFY(log.lines().isEmpty());

    doc.activeImage().fill(Qt::red);
    doc.markPainted();
    const QImage flat = doc.flatComposite();
    QCOMPARE(compositeLines(log), QStringList({"[PD] FlatComposite: rebuilt (3-blit) in N ms"}));
    QCOMPARE(flat.pixel(3, 3), qRgba(255, 0, 0, 255));
}

void TestComposite::hiddenActiveLayerIsBelowPlusAbove()
{
    CanvasDocument doc(20, 20);
    doc.addLayer();
    doc.addLayer();
    fillLayer(doc, 0, QRect(0, 0, 12, 20), QColor(255, 0, 0, 160));
    fillLayer(doc, 1, QRect(0, 0, 20, 20), QColor(0, 255, 0));
    fillLayer(doc, 2, QRect(8, 0, 12, 20), QColor(0, 0, 255, 100));
    doc.setActiveLayer(1);

    QImage all = doc.flatComposite();
    QCOMPARE(all.pixel(1, 1), qRgba(0, 255, 0, 255));

    doc.setLayerVisible(1, false);
    const QImage flat = doc.flatComposite();
    QCOMPARE(flat, over({doc.belowComposite(), doc.aboveComposite()}));
    QCOMPARE(flat, over({doc.layerImage(0), doc.layerImage(2)}));
    QCOMPARE(qAlpha(flat.pixel(15, 5)), 100);
    QCOMPARE(qAlpha(flat.pixel(2, 5)), 160);
}

void TestComposite::halfOpacityHalvesAlpha()
{
    for (int active = 0; active < 2; ++active) {
        CanvasDocument doc(10, 10);
        doc.addLayer();
        fillLayer(doc, 0, QRect(0, 0, 10, 10), QColor(255, 0, 0));
        fillLayer(doc, 1, QRect(0, 0, 5, 10), QColor(0, 0, 255, 200));
        doc.setLayerOpacity(0, 0.5f);
        doc.setLayerOpacity(1, 0.5f);
        doc.setActiveLayer(active);
        const QImage flat = doc.flatComposite();
        QVERIFY(std::abs(qAlpha(flat.pixel(8, 5)) - 128) <= 1);
        QCOMPARE(doc.layerImage(0).pixel(8, 5), qRgba(255, 0, 0, 255));
        QCOMPARE(doc.layerImage(1).pixel(2, 5), qRgba(0, 0, 255, 200));
        // 0.5 over 0.5: 0.5 + 0.5 * 200/255 * 0.5 of coverage.
        QVERIFY(std::abs(qAlpha(flat.pixel(2, 5)) - 178) <= 2);
    }
}

void TestComposite::switchingLayersRebuildsPartialsNotFlat()
{
    CanvasDocument doc(8, 8);
    doc.addLayer();
    doc.addLayer();
    doc.flatComposite();
    const QImage before = doc.flatComposite();

    LogCapture log;
    doc.setActiveLayer(0);
    QVERIFY(doc.belowDirty());
    QVERIFY(doc.aboveDirty());
    QVERIFY(!doc.compositeDirty());
    // What a repaint does: the partials first, then the (cached) flat image.
    doc.rebuildPartials();
    const QImage after = doc.flatComposite();
    QCOMPARE(compositeLines(log), QStringList({"[PD] SplitBelow: rebuilt 0 layers in N ms",
                                               "[PD] SplitAbove: rebuilt 2 layers in N ms"}));
    QCOMPARE(after, before);

    log.clear();
    doc.activeImage().fill(Qt::green);
    doc.markPainted();
    doc.rebuildPartials();
    doc.flatComposite();
    QCOMPARE(compositeLines(log), QStringList({"[PD] FlatComposite: rebuilt (3-blit) in N ms"}));
}

void TestComposite::structuralChangesRebuildEverything()
{
    CanvasDocument doc(8, 8);
    doc.addLayer();
    doc.flatComposite();
    LogCapture log;
    doc.addLayer();
    doc.flatComposite();
    QCOMPARE(compositeLines(log), QStringList({"[PD] SplitBelow: rebuilt 2 layers in N ms",
                                               "[PD] SplitAbove: rebuilt 0 layers in N ms",
                                               "[PD] FlatComposite: rebuilt (3-blit) in N ms"}));
    log.clear();
    doc.setLayerVisible(0, false);
    doc.flatComposite();
    QCOMPARE(log.lines().size(), 3);
}

void TestComposite::undersizedLayerFromSingleLoad()
{
    CanvasDocument doc(8, 8);
    QImage small(4, 4, QImage::Format_ARGB32);
    small.fill(Qt::red);
    doc.setStrokesAndImage({}, small);
    const QImage flat = doc.flatComposite();
    QCOMPARE(flat.size(), QSize(8, 8));
    QCOMPARE(flat.pixel(1, 1), qRgba(255, 0, 0, 255));
    QCOMPARE(qAlpha(flat.pixel(6, 6)), 0);
}

void TestComposite::flatEqualsThreeQPainterBlits_data()
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
    QTest::newRow("1080p") << 1920 << 1080 << 2 << 1.0f << true;
}

void TestComposite::flatEqualsThreeQPainterBlits()
{
    QFETCH(int, w);
    QFETCH(int, h);
    QFETCH(int, active);
    QFETCH(float, opacity);
    QFETCH(bool, visible);
    std::mt19937 rng(uint(w * 31 + h + active));
    QList<CanvasLayer> layers;
    for (int i = 0; i < 5; ++i) {
        CanvasLayer layer;
        layer.name = QString::number(i);
        layer.image = mixedLayer(w, h, rng);
        layer.opacity = i == 1 ? 0.7f : 1.0f;
        layers.append(layer);
    }
    CanvasDocument doc(w, h);
    doc.setLayers(layers, active);
    doc.setLayerOpacity(active, opacity);
    doc.setLayerVisible(active, visible);
    const QImage flat = doc.flatComposite();
    QCOMPARE(flat, referenceFlatComposite(doc.belowComposite(), doc.activeImage(), visible, opacity,
                                          doc.aboveComposite()));

    // Painting into the active layer rebuilds from the cached partials alike.
    QPainter painter(&doc.activeImage());
    painter.fillRect(QRect(5, 5, w / 2, h / 3), QColor(10, 200, 90, 140));
    painter.end();
    doc.markPainted();
    QCOMPARE(doc.flatComposite(), referenceFlatComposite(doc.belowComposite(), doc.activeImage(),
                                                         visible, opacity, doc.aboveComposite()));
}

void TestComposite::partialRebuildEqualsFullBlits_data()
{
    QTest::addColumn<float>("opacity");
    QTest::addColumn<bool>("eraser");
    QTest::newRow("brush") << 1.0f << false;
    QTest::newRow("brush at 0.6") << 0.6f << false;
    QTest::newRow("eraser") << 1.0f << true;
}

// Strokes marked with their bounds rebuild only the tiles they touch; the
// result must be what the three full-image blits give after every stroke.
void TestComposite::partialRebuildEqualsFullBlits()
{
    QFETCH(float, opacity);
    QFETCH(bool, eraser);
    const int w = 517, h = 263;
    std::mt19937 rng(77);
    QList<CanvasLayer> layers;
    for (int i = 0; i < 3; ++i) {
        CanvasLayer layer;
        layer.name = QString::number(i);
        layer.image = mixedLayer(w, h, rng);
        layers.append(layer);
    }
    CanvasDocument doc(w, h);
    doc.setLayers(layers, 1);
    doc.setLayerOpacity(1, opacity);
    QImage held = doc.flatComposite();
    for (int i = 0; i < 25; ++i) {
        Stroke stroke;
        stroke.color = QColor(int(rng() % 256), int(rng() % 256), int(rng() % 256),
                              i % 3 ? 255 : int(rng() % 256));
        stroke.width = float(1 + rng() % 40);
        stroke.eraser = eraser && i % 2;
        const int points = 1 + int(rng() % 6);
        for (int k = 0; k < points; ++k)
            stroke.points.append(
                QPointF(int(rng() % unsigned(w + 40)) - 20, int(rng() % unsigned(h + 40)) - 20));
        paintStroke(doc.activeImage(), stroke, 0);
        doc.markPainted(strokeBounds(stroke, doc.size()));
        // Every other result stays held, so the next rebuild works on a copy;
        // otherwise it recomposes in place.
        const QImage flat = doc.flatComposite();
        held = i % 2 ? flat : QImage();
        QCOMPARE(flat, referenceFlatComposite(doc.belowComposite(), doc.activeImage(), true,
                                              opacity, doc.aboveComposite()));
    }
}

// After the active layer changes, the partials are rebuilt and the next
// rebuild is a full one even for a small painted area.
void TestComposite::partialRebuildFollowsPartials()
{
    std::mt19937 rng(5);
    QList<CanvasLayer> layers;
    for (int i = 0; i < 3; ++i) {
        CanvasLayer layer;
        layer.name = QString::number(i);
        layer.image = mixedLayer(200, 120, rng);
        layers.append(layer);
    }
    CanvasDocument doc(200, 120);
    doc.setLayers(layers, 1);
    doc.flatComposite();
    doc.setActiveLayer(2);
    doc.rebuildPartials();
    Stroke dot;
    dot.color = QColor(200, 10, 10, 128);
    dot.width = 6;
    dot.points = {QPointF(10, 10)};
    paintStroke(doc.activeImage(), dot, 0);
    doc.markPainted(strokeBounds(dot, doc.size()));
    QCOMPARE(doc.flatComposite(), referenceFlatComposite(doc.belowComposite(), doc.activeImage(),
                                                         true, 1.0f, doc.aboveComposite()));
}

QTEST_MAIN(TestComposite)
#include "tst_composite.moc"
