#pragma once

#include "editor/EditorFeature.h"

#include "engine/Stroke.h"

#include <QRect>

class CoopFacet;
class CoopUsersPopup;
class QToolButton;

// What makes an editor a co-op editor: its strokes are shared piece by piece,
// other people's strokes and clears land on its canvas, and the Layers button
// lists the people in the session instead.
class CoopFeature : public EditorFeature {
    Q_OBJECT

public:
    CoopFeature(const EditorContext &context, CoopFacet *coop, QToolButton *usersButton);

    // After the settings: everyone fills with the session's tolerance.
    void applySettings(const EditorSettings &settings) override;

public slots:
    void toggleUsers();

private:
    void onRemoteStroke(const Stroke &stroke);
    void onPictureAreaChanged(const QImage &picture, const QRect &bounds);
    void showUsers();
    // Right edge on the button's right edge, just below it.
    void placeUsers();

    CoopFacet *m_coop;
    QToolButton *m_usersButton;
    CoopUsersPopup *m_users;
    // Where other participants' strokes still wait for the shared picture.
    QRect m_remoteArea;
};
