// A co-op host in its own process, driven by lines on stdin:
//   "stroke X Y"  draw a one-point stroke
//   "kick ID"     remove a peer
// It reports on stdout: "hosting", "joined N", "stroke X Y from NICK".
#include "coop/CoopSession.h"

#include <QCoreApplication>
#include <QImage>
#include <QSocketNotifier>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    auto say = [&out](const QString &line) { out << line << Qt::endl; };
    CoopSession &session = CoopSession::instance();
    QImage canvas(16, 9, QImage::Format_RGBA8888);
    canvas.fill(QColor(0, 0, 255, 255));
    session.setCanvasProvider([canvas] { return canvas; });
    QObject::connect(&session, &CoopSession::usersChanged, [say](const QList<CoopUser> &users) {
        say(QStringLiteral("joined %1").arg(users.size() - 1));
    });
    QObject::connect(&session, &CoopSession::strokeReceived,
                     [say](const Stroke &s, const QString &from) {
                         say(QStringLiteral("stroke %1 %2 from %3")
                                 .arg(s.points[0].x())
                                 .arg(s.points[0].y())
                                 .arg(from));
                     });
    if (!session.host(QStringLiteral("Remote"), 42069)) {
        say(session.lastError());
        return 1;
    }
    say(QStringLiteral("hosting"));

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char line[256];
        if (!std::fgets(line, sizeof line, stdin)) {
            app.quit();
            return;
        }
        const QStringList words = QString::fromUtf8(line).simplified().split(' ');
        if (words.value(0) == "stroke") {
            Stroke s;
            s.points = {QPointF(words.value(1).toDouble(), words.value(2).toDouble())};
            s.color = Qt::red;
            session.sendStroke(s);
        } else if (words.value(0) == "kick") {
            session.kick(words.value(1).toInt());
        }
    });
    return app.exec();
}
