#include "pendingqueue_p.h"

#include <QtCore/QUrl>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

HashValue hashOf(const QNetworkRequest &request)
{
    HashValue hash = qHash(request.url());
    const QList<QByteArray> names = request.rawHeaderList();
    for (const QByteArray &name : names) {
        const HashValue parts[] = {hash, qHash(name), qHash(request.rawHeader(name))};
        hash = qHashRange(std::begin(parts), std::end(parts));
    }
    return hash;
}

} // namespace

HashValue qHash(const ReplyData &record, HashValue seed)
{
    const FileData &file = record.fileData;
    const HashValue parts[] = {
        qHash(record.tag),         qHash(record.replyType),  qHash(record.data),
        qHash(file.filePath),      qHash(file.tempFilePath), qHash(file.hash),
        qHash(file.size),          qHash(file.resumeOffset), hashOf(record.request),
        qHash(record.directReply),
    };
    return qHashRange(std::begin(parts), std::end(parts), seed);
}

bool PendingQueue::contains(const ReplyData &record) const
{
    return contains(record, qHash(record));
}

void PendingQueue::append(const ReplyData &record)
{
    append(record, qHash(record));
}

bool PendingQueue::appendNew(const ReplyData &record)
{
    // Hashing a request costs as much as everything else here, so it is done once.
    const HashValue hash = qHash(record);
    if (contains(record, hash))
        return false;
    append(record, hash);
    return true;
}

bool PendingQueue::contains(const ReplyData &record, HashValue hash) const
{
    const auto alike = m_byHash.constFind(hash);
    return alike != m_byHash.cend()
        && std::any_of(alike->cbegin(), alike->cend(),
                       [&](Number number) { return m_entries.at(number).record == record; });
}

void PendingQueue::append(const ReplyData &record, HashValue hash)
{
    const Number number = m_nextNumber++;
    const QString path = record.request.url().path(QUrl::FullyDecoded);
    enlist(m_byHash, hash, number);
    enlist(m_byPath, path, number);
    if (const QString &file = record.fileData.filePath; !file.isEmpty())
        enlist(m_byFile, file, number);
    m_entries.emplace_hint(m_entries.end(), number, Entry{record, hash, path});
}

ReplyData PendingQueue::takeFirst()
{
    const auto first = m_entries.begin();
    unlist(m_byPath, first->second.path, first->first);
    return take(first);
}

QVector<ReplyData> PendingQueue::removePath(const QString &path)
{
    const Numbers numbers = m_byPath.take(path);
    QVector<ReplyData> removed;
    removed.reserve(int(numbers.size()));
    for (const Number number : numbers)
        removed.append(take(m_entries.find(number)));
    return removed;
}

bool PendingQueue::containsFile(const QString &filePath) const
{
    return m_byFile.contains(filePath);
}

ReplyData PendingQueue::take(std::map<Number, Entry>::iterator entry)
{
    const Number number = entry->first;
    unlist(m_byHash, entry->second.hash, number);
    ReplyData record = std::move(entry->second.record);
    if (const QString &file = record.fileData.filePath; !file.isEmpty())
        unlist(m_byFile, file, number);
    m_entries.erase(entry);
    return record;
}

template <typename Key>
void PendingQueue::enlist(QHash<Key, Numbers> &index, const Key &key, Number number)
{
    Numbers &numbers = index[key];
    numbers.insert(numbers.end(), number);
}

template <typename Key>
void PendingQueue::unlist(QHash<Key, Numbers> &index, const Key &key, Number number)
{
    const auto numbers = index.find(key);
    numbers->erase(number);
    if (numbers->empty())
        index.erase(numbers);
}
