#include "pendingqueue_p.h"

#include <QtCore/QUrl>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

uint hashOf(const QNetworkRequest &request)
{
    uint hash = qHash(request.url());
    const QList<QByteArray> names = request.rawHeaderList();
    for (const QByteArray &name : names) {
        const uint parts[] = {hash, qHash(name), qHash(request.rawHeader(name))};
        hash = qHashRange(std::begin(parts), std::end(parts));
    }
    return hash;
}

} // namespace

uint qHash(const ReplyData &record, uint seed)
{
    const FileData &file = record.fileData;
    const uint parts[] = {
        qHash(record.tag),         qHash(record.replyType),  qHash(record.data),
        qHash(file.filePath),      qHash(file.tempFilePath), qHash(file.hash),
        qHash(file.size),          qHash(file.resumeOffset), hashOf(record.request),
        qHash(record.directReply),
    };
    return qHashRange(std::begin(parts), std::end(parts), seed);
}

bool PendingQueue::contains(const ReplyData &record) const
{
    const auto alike = m_byHash.constFind(qHash(record));
    return alike != m_byHash.cend()
        && std::any_of(alike->cbegin(), alike->cend(),
                       [&](Number number) { return m_entries.at(number).record == record; });
}

void PendingQueue::append(const ReplyData &record)
{
    const Number number = m_nextNumber++;
    const Entry entry{record, qHash(record), record.request.url().path(QUrl::FullyDecoded)};
    m_entries.emplace_hint(m_entries.end(), number, entry);
    m_byHash[entry.hash].insert(number);
    m_byPath[entry.path].insert(number);
}

ReplyData PendingQueue::takeFirst()
{
    const auto first = m_entries.begin();
    unlist(m_byHash, first->second.hash, first->first);
    unlist(m_byPath, first->second.path, first->first);
    ReplyData record = std::move(first->second.record);
    m_entries.erase(first);
    return record;
}

void PendingQueue::removePath(const QString &path)
{
    const auto listed = m_byPath.find(path);
    if (listed == m_byPath.end())
        return;
    const Numbers numbers = std::move(*listed);
    m_byPath.erase(listed);
    for (const Number number : numbers) {
        const auto entry = m_entries.find(number);
        unlist(m_byHash, entry->second.hash, number);
        m_entries.erase(entry);
    }
}

template <typename Key>
void PendingQueue::unlist(QHash<Key, Numbers> &index, const Key &key, Number number)
{
    const auto numbers = index.find(key);
    numbers->erase(number);
    if (numbers->empty())
        index.erase(numbers);
}
