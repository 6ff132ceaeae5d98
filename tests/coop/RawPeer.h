#pragma once

#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

#include <QTcpSocket>
#include <QtEndian>
#include <algorithm>
#include <iterator>

// A deliberately naive co-op peer: its own framing code, so the wire format is
// checked independently of the product's encoder and decoder. It can come
// from any loopback address (127.0.0.x), to play several machines.
class RawPeer : public QObject {
    Q_OBJECT

public:
    explicit RawPeer(quint16 port, const QString &from = QString(), QObject *parent = nullptr)
        : QObject(parent)
    {
        connect(&socket, &QTcpSocket::readyRead, this, &RawPeer::onReadyRead);
        connect(&socket, &QTcpSocket::disconnected, this, [this] { closed = true; });
        connect(&socket, &QTcpSocket::errorOccurred, this, [this] { closed = true; });
        if (!from.isEmpty())
            socket.bind(QHostAddress(from));
        socket.connectToHost(QStringLiteral("127.0.0.1"), port);
        socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    }

    static QByteArray frame(const QByteArray &payload)
    {
        QByteArray out(4, Qt::Uninitialized);
        qToBigEndian<quint32>(quint32(payload.size()), out.data());
        return out + payload;
    }

    static QByteArray json(const QJsonObject &o)
    {
        return QJsonDocument(o).toJson(QJsonDocument::Compact);
    }

    void sendRaw(const QByteArray &bytes)
    {
        socket.write(bytes);
        socket.flush();
    }

    void send(const QJsonObject &o) { sendRaw(frame(json(o))); }

    void hello(const QString &nick, int version = 2)
    {
        send(QJsonObject{{"t", "hello"}, {"nick", nick}, {"ver", version}});
    }

    QList<QJsonObject> ofType(const QString &type) const
    {
        QList<QJsonObject> out;
        std::copy_if(received.begin(), received.end(), std::back_inserter(out),
                     [&](const QJsonObject &o) { return o.value("t") == type; });
        return out;
    }
    int count(const QString &type) const { return int(ofType(type).size()); }
    QJsonObject last(const QString &type) const { return ofType(type).value(count(type) - 1); }

    bool connected() const { return socket.state() == QAbstractSocket::ConnectedState; }

    QTcpSocket socket;
    QList<QJsonObject> received;
    bool autoPong = true;
    bool closed = false;

private slots:
    void onReadyRead()
    {
        buffer += socket.readAll();
        qsizetype at = 0;
        while (buffer.size() - at >= 4) {
            const quint32 n = qFromBigEndian<quint32>(buffer.constData() + at);
            if (buffer.size() - at < qsizetype(n) + 4)
                break;
            const QJsonObject o = QJsonDocument::fromJson(buffer.mid(at + 4, n)).object();
            at += qsizetype(n) + 4;
            received.append(o);
            if (autoPong && o.value("t").toString() == "ping")
                send(QJsonObject{{"t", "pong"}, {"ts", o.value("ts")}});
        }
        buffer.remove(0, at);
    }

private:
    QByteArray buffer;
};
