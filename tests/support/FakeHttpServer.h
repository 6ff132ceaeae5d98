#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <atomic>

// A loopback HTTP server with its own thread and event loop, so it keeps
// serving while the test thread blocks. Every request gets the same answer;
// when silent the connection is accepted and never answered; when dripping
// the headers go out at once and then two bytes of body a second.
class FakeHttpServer : public QThread {
public:
    enum class Mode { Answer, Silent, Drip };

    explicit FakeHttpServer(QByteArray body, Mode mode = Mode::Answer)
        : m_body(std::move(body)), m_mode(mode)
    {
        start();
        m_ready.acquire();
    }
    ~FakeHttpServer() override
    {
        quit();
        wait();
    }

    quint16 port() const { return m_port.load(); }
    int connections() const { return m_connections.load(); }

protected:
    void run() override
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        m_port.store(server.serverPort());
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
            while (QTcpSocket *socket = server.nextPendingConnection()) {
                ++m_connections;
                if (m_mode != Mode::Silent)
                    QObject::connect(socket, &QTcpSocket::readyRead, socket,
                                     [this, socket] { answerWhenComplete(socket); });
            }
        });
        m_ready.release();
        exec();
    }

private:
    void answerWhenComplete(QTcpSocket *socket)
    {
        QByteArray &request = m_pending[socket];
        request += socket->readAll();
        if (!request.contains("\r\n\r\n"))
            return;
        m_pending.remove(socket);
        const qsizetype length = m_mode == Mode::Drip ? 1 << 20 : m_body.size();
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(length) + "\r\nConnection: close\r\n\r\n");
        if (m_mode == Mode::Answer) {
            socket->write(m_body);
            socket->disconnectFromHost();
            return;
        }
        auto *drip = new QTimer(socket);
        QObject::connect(drip, &QTimer::timeout, socket, [socket] { socket->write("{ "); });
        drip->start(1000);
    }

    const QByteArray m_body;
    const Mode m_mode;
    QSemaphore m_ready;
    std::atomic<quint16> m_port{0};
    std::atomic<int> m_connections{0};
    QHash<QTcpSocket *, QByteArray> m_pending;
};
