#include "dock/CanvasChooser.h"

#include "common/Text.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int EntryHeight = 32;
constexpr int EntrySpacing = 4;
constexpr int MaxListHeight = 284;

QPushButton *entryButton(const QString &text, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setMinimumHeight(EntryHeight);
    button->setCursor(Qt::PointingHandCursor);
    return button;
}

} // namespace

CanvasChooser::CanvasChooser(QWidget *parent, const QStringList &canvasNames, CoopEntry coopEntry)
    : QDialog(parent)
{
    setWindowTitle(uiText("Chooser.Title"));
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                   Qt::WindowCloseButtonHint);
    setMinimumWidth(280);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(8);
    layout->addWidget(new QLabel(uiText("Chooser.Question"), this));

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFrameShape(QFrame::NoFrame);
    auto *list = new QWidget(scroll);
    auto *listLayout = new QVBoxLayout(list);
    listLayout->setContentsMargins(0, 0, 0, 0);
    listLayout->setSpacing(EntrySpacing);

    int entries = 0;
    if (coopEntry != CoopEntry::None) {
        const QString text =
            QStringLiteral("  ") + (coopEntry == CoopEntry::Hosting ? uiText("Chooser.CoopHosting")
                                                                    : uiText("Chooser.CoopJoined"));
        QPushButton *coop = entryButton(text, list);
        coop->setIcon(tintedSvgIcon(Icons::People, Qt::white, QSize(16, 16)));
        coop->setIconSize(QSize(16, 16));
        coop->setStyleSheet(QStringLiteral(
            "QPushButton { background-color: #2a7f2a; color: white; text-align: left; "
            "padding-left: 8px; border: 1px solid #246b24; border-radius: 4px; }"));
        connect(coop, &QPushButton::clicked, this, [this] {
            m_coopChosen = true;
            accept();
        });
        listLayout->addWidget(coop);
        ++entries;
    }
    for (int i = 0; i < canvasNames.size(); ++i) {
        QPushButton *button = entryButton(canvasNames[i], list);
        connect(button, &QPushButton::clicked, this, [this, i] {
            m_chosenCanvas = i;
            accept();
        });
        listLayout->addWidget(button);
        ++entries;
    }

    scroll->setWidget(list);
    scroll->setFixedHeight(listHeight(entries));
    layout->addWidget(scroll);
}

int CanvasChooser::listHeight(int entries)
{
    return std::min(entries * (EntryHeight + EntrySpacing) - EntrySpacing, MaxListHeight);
}
