#pragma once

#include <QDialog>
#include <QStringList>

// "Select Canvas": one button per canvas, optionally led by the co-op
// canvas. Clicking a button chooses it and accepts the dialog.
class CanvasChooser : public QDialog {
    Q_OBJECT

public:
    enum class CoopEntry { None, Hosting, Joined };

    CanvasChooser(QWidget *parent, const QStringList &canvasNames, CoopEntry coopEntry);

    bool coopChosen() const { return m_coopChosen; }
    // Index into canvasNames, or -1 when no canvas was chosen.
    int chosenCanvas() const { return m_chosenCanvas; }

    // Height of the scrolling list for this many entries.
    static int listHeight(int entries);

private:
    bool m_coopChosen = false;
    int m_chosenCanvas = -1;
};
