#ifndef TARVISNET_TESTS_FAULTROWS_H
#define TARVISNET_TESTS_FAULTROWS_H

#include "requestkinds.h"
#include "scriptedserver.h"

#include <QtTest/QTest>

#include <functional>

/// Data rows that the tests of faults share.
namespace faultrows {

using Mode = ScriptedServer::Mode;

/// A row over HTTP and one over HTTPS, in the column "mode".
inline void addModes()
{
    QTest::addColumn<Mode>("mode");
    QTest::newRow("HTTP") << Mode::Http;
    QTest::newRow("HTTPS") << Mode::Https;
}

/// Has \a row add what it does for every kind of request, over HTTP and over HTTPS.
inline void
forEachKind(const std::function<void(const char *scheme, Mode mode, const RequestKind &kind)> &row)
{
    for (const RequestKind &kind : requestkinds::all()) {
        row("HTTP", Mode::Http, kind);
        row("HTTPS", Mode::Https, kind);
    }
}

} // namespace faultrows

#endif // TARVISNET_TESTS_FAULTROWS_H
