#include "LocalHttpServer.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

namespace {

// A request is complete once its headers and as many body bytes as Content-Length says
// have arrived.
std::optional<HttpRequest> parse(const QByteArray &data)
{
    const qsizetype headerEnd = data.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return std::nullopt;
    const QList<QByteArray> lines = data.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    HttpRequest request;
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length", "0").toLongLong();
    if (data.size() - headerEnd - 4 < length)
        return std::nullopt;
    request.body = data.mid(headerEnd + 4, length);
    return request;
}

QByteArray response(const HttpReply &reply)
{
    return "HTTP/1.1 " + QByteArray::number(reply.status) + (reply.status == 200 ? " OK" : " Status")
        + "\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(reply.body.size())
        + "\r\nConnection: close\r\n\r\n" + reply.body;
}

} // namespace

LocalHttpServer::LocalHttpServer(Handler handler) : m_handler(std::move(handler))
{
    std::future<quint16> ready = m_ready.get_future();
    start();
    m_port = ready.get();
}

LocalHttpServer::~LocalHttpServer()
{
    quit();
    wait();
}

QUrl LocalHttpServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path));
}

QList<HttpRequest> LocalHttpServer::requests() const
{
    const QMutexLocker locker(&m_lock);
    return m_requests;
}

void LocalHttpServer::run()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
        while (QTcpSocket *socket = server.nextPendingConnection()) {
            auto received = std::make_shared<QByteArray>();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, received] {
                *received += socket->readAll();
                const std::optional<HttpRequest> request = parse(*received);
                if (!request)
                    return;
                received->clear();
                {
                    const QMutexLocker locker(&m_lock);
                    m_requests.append(*request);
                }
                const HttpReply reply = m_handler(*request);
                if (reply.behaviour == HttpReply::Behaviour::drop) {
                    socket->abort();
                } else if (reply.behaviour == HttpReply::Behaviour::answer) {
                    socket->write(response(reply));
                    socket->disconnectFromHost();
                }
            });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
    m_ready.set_value(server.serverPort());
    exec();
}
