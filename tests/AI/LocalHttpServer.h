#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>

#include <functional>
#include <future>
#include <memory>
#include <optional>

/// One request as it arrived on the wire.
struct HttpRequest {
    QByteArray method;
    QMap<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;
};

/// What the server does with a request.
struct HttpReply {
    enum class Behaviour {
        answer, ///< send the status and body, then close
        drop,   ///< close the connection without a word
        hang,   ///< keep the connection open and never answer
    };
    int status = 200;
    QByteArray body;
    Behaviour behaviour = Behaviour::answer;
};

/// A real HTTP/1.1 server on 127.0.0.1 at a free port, on a thread of its own, answering
/// each request with what `handler` (called on the server's thread) returns, and keeping
/// every request for the test to examine.
class LocalHttpServer : public QThread {
public:
    using Handler = std::function<HttpReply(const HttpRequest &)>;

    explicit LocalHttpServer(Handler handler) : m_handler(std::move(handler))
    {
        std::future<quint16> ready = m_ready.get_future();
        start();
        m_port = ready.get();
    }

    ~LocalHttpServer() override
    {
        quit();
        wait();
    }

    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/v1/messages").arg(m_port)); }

    QList<HttpRequest> requests() const
    {
        const QMutexLocker locker(&m_lock);
        return m_requests;
    }

protected:
    void run() override
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
            while (QTcpSocket *socket = server.nextPendingConnection()) {
                auto received = std::make_shared<QByteArray>();
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, received] {
                    *received += socket->readAll();
                    if (const std::optional<HttpRequest> request = parse(*received)) {
                        received->clear();
                        answer(*socket, *request);
                    }
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        m_ready.set_value(server.serverPort());
        exec();
    }

private:
    // A request is complete once its headers and as many body bytes as Content-Length
    // says have arrived.
    static std::optional<HttpRequest> parse(const QByteArray &data)
    {
        const qsizetype headerEnd = data.indexOf("\r\n\r\n");
        if (headerEnd < 0)
            return std::nullopt;
        const QList<QByteArray> lines = data.left(headerEnd).split('\n');
        HttpRequest request;
        request.method = lines.first().trimmed().split(' ').value(0);
        for (const QByteArray &line : lines.mid(1)) {
            const qsizetype colon = line.indexOf(':');
            if (colon > 0)
                request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
        }
        const qsizetype length = request.headers.value("content-length", "0").toLongLong();
        if (data.size() - headerEnd - 4 < length)
            return std::nullopt;
        request.body = data.mid(headerEnd + 4, length);
        return request;
    }

    void answer(QTcpSocket &socket, const HttpRequest &request)
    {
        {
            const QMutexLocker locker(&m_lock);
            m_requests.append(request);
        }
        const HttpReply reply = m_handler(request);
        if (reply.behaviour == HttpReply::Behaviour::drop) {
            socket.abort();
        } else if (reply.behaviour == HttpReply::Behaviour::answer) {
            socket.write("HTTP/1.1 " + QByteArray::number(reply.status) + (reply.status == 200 ? " OK" : " Status")
                         + "\r\nContent-Type: application/json\r\nContent-Length: "
                         + QByteArray::number(reply.body.size()) + "\r\nConnection: close\r\n\r\n" + reply.body);
            socket.disconnectFromHost();
        }
    }

    Handler m_handler;
    std::promise<quint16> m_ready;
    quint16 m_port = 0;
    mutable QMutex m_lock;
    QList<HttpRequest> m_requests;
};
