#pragma once

#include "source/CoopFacet.h"
#include "source/EditorSource.h"

#include <memory>
#include <mutex>

class CoopCanvas;
class CoopSession;

// The co-op editor's source: the shared picture of CoopCanvas and the people
// of CoopSession. Nothing is kept on disk and nothing is committed: every
// piece of a stroke is shared as it is drawn. The session's end counts as the
// source going away.
class CoopEditorSource final : public CoopFacet, public EditorSource {
    Q_OBJECT

public:
    // The key the co-op editor is known by among the open editors.
    static const QString EditorKey;

    CoopEditorSource(CoopCanvas &canvas, CoopSession &session);

    QSize canvasSize() const override;
    QString canvasKey() const override { return QString(); }
    void commit(const QVector<Stroke> &, const QImage &) override {}
    void cleared(const QImage &blank) override;
    void setLiveImage(const QImage &) override {}
    void setJitterEnabled(bool on) override;
    void setJitterAmount(float px) override;
    void setJitterInterval(float seconds) override;
    QImage captureScene() override { return QImage(); }
    void setRemovedCallback(std::function<void()> callback) override;
    CoopFacet *coop() override { return this; }

    QImage picture() const override;
    int fillTolerance() const override;
    void shareSegment(const Stroke &segment) override;
    QList<CoopParticipant> participants() const override;
    bool localIsHost() const override;
    void kick(int id) override;

private:
    void onSessionOver();

    CoopCanvas &m_canvas;
    CoopSession &m_session;
    std::mutex m_callbackMutex;
    std::function<void()> m_removed;
};

// The co-op editor's source over the process-wide picture and session.
std::unique_ptr<EditorSource> makeCoopEditorSource();
