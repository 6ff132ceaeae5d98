#pragma once

#include <QLayout>
#include <QList>

// The tool row's layout: groups of controls side by side, the spare width
// shared out evenly between them. When the window is too narrow for one line
// the row wraps, so no control ever lies on another.
class ToolRowLayout : public QLayout {
public:
    explicit ToolRowLayout(QWidget *parent);
    ~ToolRowLayout() override;

    void addItem(QLayoutItem *item) override;
    int count() const override { return int(m_items.size()); }
    QLayoutItem *itemAt(int index) const override { return m_items.value(index); }
    QLayoutItem *takeAt(int index) override;

    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize minimumSize() const override;
    QSize sizeHint() const override;
    void setGeometry(const QRect &rect) override;

private:
    // Places the items in rect (when apply) and returns the height they take.
    int arrange(const QRect &rect, bool apply) const;

    QList<QLayoutItem *> m_items;
};
