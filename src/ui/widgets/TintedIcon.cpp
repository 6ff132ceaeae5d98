#include "widgets/TintedIcon.h"

#include <QByteArray>
#include <QPainter>
#include <QSvgRenderer>

QPixmap transparentPixmap(const QSize &size)
{
    QPixmap pixmap(size.expandedTo(QSize(0, 0)));
    pixmap.fill(Qt::transparent);
    return pixmap;
}

QPixmap tintedSvgPixmap(const QString &svgText, const QColor &color, const QSize &size)
{
    QPixmap pixmap = transparentPixmap(size);
    if (pixmap.isNull())
        return pixmap;

    QByteArray bytes = svgText.toUtf8();
    bytes.replace("ICON_COLOR", color.name().toLatin1());
    QSvgRenderer renderer(bytes);
    const QSize natural = renderer.defaultSize();
    if (!renderer.isValid() || natural.isEmpty())
        return pixmap;

    const double dw = natural.width();
    const double dh = natural.height();
    const double scale = std::min(size.width() / dw, size.height() / dh);
    const QRectF target((size.width() - dw * scale) / 2.0, (size.height() - dh * scale) / 2.0,
                        dw * scale, dh * scale);
    QPainter painter(&pixmap);
    renderer.render(&painter, target);
    return pixmap;
}

QIcon tintedSvgIcon(const QString &svgText, const QColor &color, const QSize &size)
{
    const QPixmap normal = tintedSvgPixmap(svgText, color, size);
    QIcon icon(normal);
    // The style's own greying barely changes a light icon on a dark theme:
    // a disabled button shows the icon faded instead.
    QPixmap faded = transparentPixmap(size);
    if (!faded.isNull()) {
        QPainter painter(&faded);
        painter.setOpacity(DisabledIconOpacity);
        painter.drawPixmap(0, 0, normal);
    }
    icon.addPixmap(faded, QIcon::Disabled);
    return icon;
}
