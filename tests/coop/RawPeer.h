#pragma once

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QTcpSocket>
#include <QtEndian>

// A deliberately naive co-op peer: its own framing code, so the wire format is
// checked independently of the product's encoder and decoder.
class RawPeer : public QObject {
    Q_OBJECT

public:
    explicit RawPeer(quint16 port = 42069, QObject *parent = nullptr) : QObject(parent)
    {
        connect(&socket, &QTcpSocket::readyRead, this, &RawPeer::onReadyRead);
        connect(&socket, &QTcpSocket::disconnected, this, [this] { closed = true; });
        socket.connectToHost(QStringLiteral("127.0.0.1"), port);
        socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    }

    static QByteArray frame(const QByteArray &payload)
    {
        const quint32 n = quint32(payload.size());
        QByteArray out;
        out.append(char(n >> 24)).append(char(n >> 16)).append(char(n >> 8)).append(char(n));
        return out + payload;
    }

    static QByteArray json(const QJsonObject &o)
    {
        return QJsonDocument(o).toJson(QJsonDocument::Compact);
    }

    void sendRaw(const QByteArray &bytes, bool byteByByte = false)
    {
        if (!byteByByte) {
            socket.write(bytes);
            socket.flush();
            return;
        }
        for (char c : bytes) {
            socket.write(&c, 1);
            socket.flush();
            QCoreApplication::processEvents();
        }
    }

    void send(const QJsonObject &o, bool byteByByte = false)
    {
        sendRaw(frame(json(o)), byteByByte);
    }

    void hello(const QString &nick, bool byteByByte = false)
    {
        send(QJsonObject{{"t", "hello"}, {"nick", nick}, {"ver", 1}}, byteByByte);
    }

    QList<QJsonObject> ofType(const QString &type) const
    {
        QList<QJsonObject> out;
        for (const QJsonObject &o : received)
            if (o.value("t").toString() == type)
                out.append(o);
        return out;
    }

    int count(const QString &type) const { return int(ofType(type).size()); }
    QJsonObject last(const QString &type) const
    {
        const QList<QJsonObject> all = ofType(type);
        return all.isEmpty() ? QJsonObject() : all.last();
    }

    bool connected() const { return socket.state() == QAbstractSocket::ConnectedState; }

    QTcpSocket socket;
    QList<QJsonObject> received;
    bool autoPong = true;
    bool closed = false;
    bool badInput = false;

private slots:
    void onReadyRead()
    {
        buffer += socket.readAll();
        while (buffer.size() >= 4) {
            const quint32 n = qFromBigEndian<quint32>(buffer.constData());
            if (buffer.size() < qsizetype(n) + 4)
                return;
            QJsonParseError error;
            const QJsonDocument doc = QJsonDocument::fromJson(buffer.mid(4, n), &error);
            buffer.remove(0, qsizetype(n) + 4);
            if (error.error != QJsonParseError::NoError || !doc.isObject()) {
                badInput = true;
                continue;
            }
            const QJsonObject o = doc.object();
            received.append(o);
            if (autoPong && o.value("t").toString() == "ping")
                send(QJsonObject{{"t", "pong"}, {"ts", o.value("ts")}});
        }
    }

private:
    QByteArray buffer;
};
