#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QThread>
#include <QUrl>

#include <functional>
#include <future>

/// One request as it arrived on the wire.
struct HttpRequest {
    QByteArray method;
    QByteArray path;
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

    explicit LocalHttpServer(Handler handler);
    ~LocalHttpServer() override;

    QUrl url(const QString &path = QStringLiteral("/v1/messages")) const;
    QList<HttpRequest> requests() const;

protected:
    void run() override;

private:
    Handler m_handler;
    std::promise<quint16> m_ready;
    quint16 m_port = 0;
    mutable QMutex m_lock;
    QList<HttpRequest> m_requests;
};
