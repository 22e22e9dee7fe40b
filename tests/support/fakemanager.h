#ifndef TARVISNET_TESTS_FAKEMANAGER_H
#define TARVISNET_TESTS_FAKEMANAGER_H

#include "fakereply.h"

#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtNetwork/QNetworkAccessManager>

/// A manager that sends nothing: it keeps what it is asked for and gives out FakeReply objects,
/// which live as long as it does or until somebody deletes them.
class FakeManager : public QNetworkAccessManager {
public:
    struct Sent {
        Operation operation;
        QNetworkRequest request;
        bool hasBody;
        QPointer<FakeReply> reply;
    };

    int count() const { return m_sent.size(); }
    const Sent &at(int index) const { return m_sent.at(index); }
    const Sent &last() const { return m_sent.last(); }

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *body) override
    {
        auto *const reply = new FakeReply(request.url(), this);
        m_sent.append({operation, request, body != nullptr, reply});
        return reply;
    }

private:
    QList<Sent> m_sent;
};

#endif // TARVISNET_TESTS_FAKEMANAGER_H
