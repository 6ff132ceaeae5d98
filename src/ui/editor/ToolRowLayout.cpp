#include "editor/ToolRowLayout.h"

#include <QWidget>

#include <algorithm>

ToolRowLayout::ToolRowLayout(QWidget *parent) : QLayout(parent)
{
    setContentsMargins(6, 4, 6, 4);
    setSpacing(8);
}

ToolRowLayout::~ToolRowLayout()
{
    qDeleteAll(m_items);
}

void ToolRowLayout::addItem(QLayoutItem *item)
{
    m_items.append(item);
}

QLayoutItem *ToolRowLayout::takeAt(int index)
{
    return index >= 0 && index < m_items.size() ? m_items.takeAt(index) : nullptr;
}

int ToolRowLayout::heightForWidth(int width) const
{
    return arrange(QRect(0, 0, width, 0), false);
}

QSize ToolRowLayout::minimumSize() const
{
    int width = 0;
    for (const QLayoutItem *item : m_items)
        width = std::max(width, item->sizeHint().width());
    const QMargins m = contentsMargins();
    width += m.left() + m.right();
    return QSize(width, heightForWidth(width));
}

QSize ToolRowLayout::sizeHint() const
{
    int width = 0;
    int shown = 0;
    for (const QLayoutItem *item : m_items) {
        if (item->isEmpty())
            continue;
        width += item->sizeHint().width();
        ++shown;
    }
    const QMargins m = contentsMargins();
    width += std::max(shown - 1, 0) * spacing() + m.left() + m.right();
    return QSize(width, heightForWidth(width));
}

void ToolRowLayout::setGeometry(const QRect &rect)
{
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int ToolRowLayout::arrange(const QRect &rect, bool apply) const
{
    const QRect area = rect.marginsRemoved(contentsMargins());
    QList<QLayoutItem *> shown;
    for (QLayoutItem *item : m_items) {
        if (!item->isEmpty())
            shown.append(item);
    }
    int y = area.y();
    for (int first = 0; first < shown.size();) {
        // As many groups as fit on this line, at least one.
        int last = first;
        int used = shown[first]->sizeHint().width();
        while (last + 1 < shown.size() &&
               used + spacing() + shown[last + 1]->sizeHint().width() <= area.width()) {
            ++last;
            used += spacing() + shown[last]->sizeHint().width();
        }
        int lineHeight = 0;
        for (int i = first; i <= last; ++i)
            lineHeight = std::max(lineHeight, shown[i]->sizeHint().height());
        if (apply) {
            const int gaps = last - first;
            const int spare = std::max(area.width() - used, 0);
            int x = area.x();
            // A lone last group keeps to the right edge, where it sits on one line.
            if (gaps == 0 && last == shown.size() - 1 && first > 0)
                x += spare;
            for (int i = first; i <= last; ++i) {
                const QSize hint = shown[i]->sizeHint();
                shown[i]->setGeometry(QRect(QPoint(x, y + (lineHeight - hint.height()) / 2), hint));
                const int step =
                    gaps > 0 ? spare * (i - first + 1) / gaps - spare * (i - first) / gaps : 0;
                x += hint.width() + spacing() + step;
            }
        }
        y += lineHeight + spacing();
        first = last + 1;
    }
    const QMargins m = contentsMargins();
    return std::max(y - spacing() - area.y(), 0) + m.top() + m.bottom();
}
