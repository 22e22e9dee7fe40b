#ifndef TARVISNET_TESTS_RECORDFIELDS_H
#define TARVISNET_TESTS_RECORDFIELDS_H

#include "records.h"

#include <QtCore/QUrl>
#include <QtNetwork/QNetworkReply>

/// Every field of a ReplyData, each with a way to give it one of many values: a test that walks
/// this table cannot forget a field.
namespace recordfields {

struct Field {
    const char *name;
    /// Gives the field the value with the number \a number; 0 is the value it has when it is new.
    void (*set)(ReplyData &record, int number);
};

/// The text with the number \a number; empty for 0.
inline QString text(int number)
{
    return number == 0 ? QString() : QStringLiteral("value %1").arg(number);
}

/// An address that no reply has. It can be compared, but not used.
inline QNetworkReply *address(int number)
{
    static char places[20000][16];
    return number == 0 ? nullptr : reinterpret_cast<QNetworkReply *>(places[number]);
}

inline QUrl url(int number)
{
    return number == 0 ? QUrl() : QUrl(QStringLiteral("http://127.0.0.1/item/%1").arg(number));
}

/// In the order of their declaration.
inline constexpr Field all[] = {
    {"tag", [](ReplyData &record, int number) { record.tag = number; }},
    {"replyType", [](ReplyData &record, int number) { record.replyType = text(number); }},
    {"data", [](ReplyData &record, int number) { record.data = text(number).toUtf8(); }},
    {"filePath", [](ReplyData &record, int number) { record.fileData.filePath = text(number); }},
    {"tempFilePath",
     [](ReplyData &record, int number) { record.fileData.tempFilePath = text(number); }},
    {"hash", [](ReplyData &record, int number) { record.fileData.hash = text(number); }},
    {"size", [](ReplyData &record, int number) { record.fileData.size = quint64(number); }},
    {"resumeOffset", [](ReplyData &record, int number) { record.fileData.resumeOffset = number; }},
    {"request",
     [](ReplyData &record, int number) { record.request = QNetworkRequest(url(number)); }},
    {"directReply", [](ReplyData &record, int number) { record.directReply = address(number); }},
};

/// A record in which every field has its value with the number \a number.
inline ReplyData filled(int number)
{
    ReplyData record;
    for (const Field &field : all)
        field.set(record, number);
    return record;
}

} // namespace recordfields

#endif // TARVISNET_TESTS_RECORDFIELDS_H
