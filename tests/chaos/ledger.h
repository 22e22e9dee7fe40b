#ifndef TARVISNET_TESTS_LEDGER_H
#define TARVISNET_TESTS_LEDGER_H

#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/// One request that was asked for.
struct Asked {
    QByteArray operation;
    /// The signal that a good answer arrives by; empty when there is none.
    QByteArray result;
    /// The codes that its failures may have.
    QVector<short> codes;
    /// The client or processor that was asked; each has a number of its own.
    int owner = 0;
    /// How often the same was asked.
    int times = 1;
    /// A redirect is followed even if its own answer failed or was aborted after its head came.
    bool isRedirected = false;
    /// Whether it may end without a signal.
    bool maySilent = false;
    /// Path of the finished file and its content; empty when it is not known in advance.
    QString file;
    QByteArray content;

    int results = 0;
    int errors = 0;
    int refusals = 0;
    QHash<QString, int> aborted;
    /// Whether it was unknown to its client before its failure or abort was told.
    bool wasUnknown = false;
    /// How many redirects were followed when it failed or was aborted; 0 if it was not.
    int failedHop = 0;
};

/// Keeps account of what was asked for and of what came of it. Each request is known by its number,
/// which every URL of it carries as a path element: /r17, or /r17/h2 after two redirects.
class Ledger {
public:
    void ask(int number, const Asked &asked);
    void repeat(int number);
    /// The request that a redirect without a target belongs to: its failure has no URL.
    void setBlank(int number) { m_blank = number; }
    bool hasBlank() const { return m_blank != 0; }

    /// \name What the signals say
    /// @{
    void addResult(int owner, const char *signal, const QString &url);
    void addError(int owner, short code, const QString &url);
    void addAborted(int owner, const QString &url);
    /// @}

    /// Everything of \a owner may end silently from now on, because it is being deleted.
    void release(int owner);
    /// Requests whose path is this may end silently, because they were dropped while they waited.
    void releasePath(const QString &path);
    /// While it is set an answered request may be aborted.
    void setDying(bool dying) { m_dying = dying; }

    /// Requests of \a owner that have not ended.
    QStringList open(int owner) const;
    /// Places in the table of \a owner that failed redirects keep.
    int placesLost(int owner) const;
    int aborts(int owner) const { return m_aborts.value(owner); }
    int refusedUrls() const { return m_refusedUrls; }
    int count() const { return int(m_asked.size()); }
    int ended() const;
    QStringList faults() const { return m_faults; }
    void fault(const QString &text) { m_faults.append(text); }

private:
    struct Place {
        Asked *asked = nullptr;
        int hop = 0;
    };

    static bool mayGoOn(const Asked &asked) { return asked.times > 1 || asked.isRedirected; }
    Place find(const QString &url);
    bool isDouble(const Asked &asked, int count) const { return count > asked.times; }

    QMap<int, Asked> m_asked;
    QHash<int, int> m_aborts;
    QStringList m_faults;
    int m_blank = 0;
    int m_refusedUrls = 0;
    bool m_dying = false;
};

#endif // TARVISNET_TESTS_LEDGER_H
