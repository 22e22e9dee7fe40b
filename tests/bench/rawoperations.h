#ifndef TARVISNET_TESTS_RAWOPERATIONS_H
#define TARVISNET_TESTS_RAWOPERATIONS_H

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QList>
#include <QtCore/QMetaType>

#include <functional>

/// One form of a raw request operation, and what it is to do.
struct RawOperation {
    const char *name = nullptr;
    /// Calls it with a URL in the form that it takes. Those with a body send rawBody.
    std::function<void(TarvisNet &, const QString &url)> call;
    const char *verb = nullptr;
    const char *kind = nullptr;
    const char *contentType = nullptr;
    bool hasBody = false;
    const char *result = nullptr;
    bool takesText = false;
};

Q_DECLARE_METATYPE(RawOperation)

namespace rawoperations {

inline const QByteArray body = "{\"asked\":1}";

inline const char *const form = "application/x-www-form-urlencoded";
inline const char *const json = "application/json";

inline QList<RawOperation> all()
{
    const QString text = QString::fromLatin1(body);
    using T = TarvisNet;
    return {
        {"rawGet(QUrl)", [](T &t, const QString &url) { t.rawGet(QUrl(url)); }, "GET", "rawGet",
         json, false, "s_rawGet", false},
        {"rawGet(QString)", [](T &t, const QString &url) { t.rawGet(url); }, "GET", "rawGet", json,
         false, "s_rawGet", true},
        {"rawPost(QUrl)", [](T &t, const QString &url) { t.rawPost(QUrl(url), body); }, "POST",
         "rawPost", form, true, "s_rawPost", false},
        {"rawPost(QString)", [text](T &t, const QString &url) { t.rawPost(url, text); }, "POST",
         "rawPost", form, true, "s_rawPost", true},
        {"rawPath(QUrl)", [](T &t, const QString &url) { t.rawPath(QUrl(url), body); }, "PATCH",
         "rawPatch", json, true, "s_rawPathFinished", false},
        {"rawDelete(QUrl)", [](T &t, const QString &url) { t.rawDelete(QUrl(url), body); },
         "DELETE", "rawDelete", json, true, "s_rawDeleteFinished", false},
        {"rawGetFile(QUrl)", [](T &t, const QString &url) { t.rawGetFile(QUrl(url)); }, "GET",
         "rawGetFile", form, false, "s_rawGetFileFinished", false},
        {"rawGetFile(QString)", [](T &t, const QString &url) { t.rawGetFile(url); }, "GET",
         "rawGetFile", form, false, "s_rawGetFileFinished", true},
        {"rawPostFile(QUrl)",
         [](T &t, const QString &url) { t.rawPostFile(QUrl(url), QString(), body); }, "POST",
         "rawPostFile", form, true, "s_rawPostFileFinished", false},
        {"rawPostFile(QUrl), no body", [](T &t, const QString &url) { t.rawPostFile(QUrl(url)); },
         "POST", "rawPostFile", form, false, "s_rawPostFileFinished", false},
        {"rawPostFile(QString)",
         [](T &t, const QString &url) { t.rawPostFile(url, QString(), body); }, "POST",
         "rawPostFile", form, true, "s_rawPostFileFinished", true},
        {"forceRawGet(QUrl)", [](T &t, const QString &url) { t.forceRawGet(QUrl(url)); }, "GET",
         "rawGet", json, false, "s_rawGet", false},
        {"forceRawGet(QString)", [](T &t, const QString &url) { t.forceRawGet(url); }, "GET",
         "rawGet", json, false, "s_rawGet", true},
    };
}

} // namespace rawoperations

#endif // TARVISNET_TESTS_RAWOPERATIONS_H
