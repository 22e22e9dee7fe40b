#ifndef TARVISNET_PENDINGQUEUE_P_H
#define TARVISNET_PENDINGQUEUE_P_H

#include "records.h"

#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <map>
#include <set>

/// As wide as Qt's own hashes, whose type depends on its version.
using HashValue = decltype(qHash(QString()));

/// The requests that wait to be sent, in the order they came. Thanks to two indexes, finding an
/// equal request and removing the requests of a path take no longer in a long queue.
class PendingQueue {
public:
    bool isEmpty() const { return m_entries.empty(); }
    int size() const { return int(m_entries.size()); }

    bool contains(const ReplyData &record) const;
    void append(const ReplyData &record);
    /// Appends unless an equal request waits already; false then.
    bool appendNew(const ReplyData &record);

    /// The queue must not be empty.
    ReplyData takeFirst();

    /// Takes out every request whose URL has the decoded path \a path, in the order they came.
    QVector<ReplyData> removePath(const QString &path);

    /// Whether a request for the file \a filePath waits.
    bool containsFile(const QString &filePath) const;

private:
    using Number = quint64;
    using Numbers = std::set<Number>;

    struct Entry {
        ReplyData record;
        HashValue hash;
        QString path;
    };

    bool contains(const ReplyData &record, HashValue hash) const;
    void append(const ReplyData &record, HashValue hash);

    /// Takes the entry of a request out of everything but the index by path.
    ReplyData take(std::map<Number, Entry>::iterator entry);

    template <typename Key>
    static void enlist(QHash<Key, Numbers> &index, const Key &key, Number number);
    template <typename Key>
    static void unlist(QHash<Key, Numbers> &index, const Key &key, Number number);

    // Numbers rise, so the map holds the requests in the order they came.
    std::map<Number, Entry> m_entries;
    QHash<HashValue, Numbers> m_byHash;
    QHash<QString, Numbers> m_byPath;
    // Only of the requests that have such a file.
    QHash<QString, Numbers> m_byFile;
    Number m_nextNumber = 0;
};

/// Equal records have equal hashes.
HashValue qHash(const ReplyData &record, HashValue seed = 0);

#endif // TARVISNET_PENDINGQUEUE_P_H
