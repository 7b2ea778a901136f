#include "support/testhttpserver.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

#include <utility>

namespace
{
    void trickle(QTcpSocket *socket, const QByteArray &body, qint64 piece, int intervalMs)
    {
        socket->write(body.left(piece));
        if (body.size() <= piece) {
            socket->disconnectFromHost();
            return;
        }
        // Timed on the socket, so that nothing fires once the client has gone.
        QTimer::singleShot(intervalMs, socket, [=] {
            if (socket->state() == QAbstractSocket::ConnectedState)
                trickle(socket, body.mid(piece), piece, intervalMs);
        });
    }
}

TestHttpServer::TestHttpServer()
{
    QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { accept(); });
    m_server.listen(QHostAddress::LocalHost, 0);
}

void TestHttpServer::reset()
{
    m_contents.clear();
    m_faults.clear();
    m_redirects.clear();
    resetStatistics();
}

void TestHttpServer::resetStatistics()
{
    m_requests.clear();
    m_maxConcurrent = static_cast<int>(m_inFlight.size());
}

void TestHttpServer::accept()
{
    // Connected in the server's name: it drops these before it deletes the sockets, its children, so none calls
    // back into a server half gone.
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        QObject::connect(socket, &QTcpSocket::disconnected, &m_server, [this, socket] {
            m_inFlight.remove(socket);
            socket->deleteLater();
        });
        QObject::connect(socket, &QTcpSocket::readyRead, &m_server, [this, socket, request = QByteArray()]() mutable {
            request += socket->readAll();
            if (m_inFlight.contains(socket) || !request.contains("\r\n\r\n"))
                return;
            // As web servers do, "a//b" stands for "a/b".
            const QString path = QUrl::fromPercentEncoding(std::exchange(request, {}).split(' ').value(1))
                                     .replace(QRegularExpression(QStringLiteral("/+")), QStringLiteral("/"));
            m_requests.append(path);
            m_inFlight.insert(socket);
            m_maxConcurrent = qMax(m_maxConcurrent, static_cast<int>(m_inFlight.size()));
            respond(socket, path);
        });
    }
}

void TestHttpServer::respond(QTcpSocket *socket, const QString &path)
{
    const QString location = m_redirects.value(path);
    QFile file(m_root.second + path.mid(m_root.first.size()));
    QPair<QByteArray, int> content {"not found\n", 404};
    Fault fault;
    if (!location.isEmpty())
        content = {{}, 302};
    else if ((fault = m_faults.value(path)).kind == Fault::Status)
        content = {"injected failure\n", fault.status};
    else if (m_contents.contains(path))
        content = m_contents.value(path);
    else if (!m_root.second.isEmpty() && path.startsWith(m_root.first + QLatin1Char('/'))
             && QDir::cleanPath(path) == path && file.open(QIODevice::ReadOnly))
        content = {file.readAll(), 200};
    else
        fault = {};

    const QByteArray reason = content.second == 200 ? " OK" : content.second == 302 ? " Found" : " Error";
    const QByteArray redirect
        = location.isEmpty() ? QByteArray() : QByteArray("Location: " + location.toUtf8() + "\r\n");
    socket->write("HTTP/1.1 " + QByteArray::number(content.second) + reason
                  + "\r\nContent-Length: " + QByteArray::number(content.first.size())
                  + "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n" + redirect + "\r\n");
    if (fault.kind == Fault::Trickle)
        return trickle(socket, content.first, qMax<qint64>(1, fault.bytes), fault.intervalMs);
    socket->write(fault.kind == Fault::Stall ? content.first.left(fault.bytes) : content.first);
    // A stalled answer stays open and silent until the client gives up or the test ends.
    if (fault.kind != Fault::Stall)
        socket->disconnectFromHost();
}
