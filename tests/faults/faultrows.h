#ifndef TARVISNET_TESTS_FAULTROWS_H
#define TARVISNET_TESTS_FAULTROWS_H

#include "operations.h"
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

/// \a value over HTTP and over HTTPS, in the column after "mode".
template <typename Value>
void addInBothModes(const Value &value)
{
    QTest::addRow("%s, HTTP", value.name.constData()) << Mode::Http << value;
    QTest::addRow("%s, HTTPS", value.name.constData()) << Mode::Https << value;
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

/// A row for every kind of request over both protocols, in the columns "mode" and "kind".
inline void addKinds()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    forEachKind([](const char *scheme, Mode mode, const RequestKind &kind) {
        QTest::addRow("%s, %s", kind.name, scheme) << mode << kind;
    });
}

/// The same for every one of \a faults, in the column "fault".
template <typename Fault>
void addFaultsInBothModes(const QList<Fault> &faults)
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<Fault>("fault");
    forEachKind([&faults](const char *scheme, Mode mode, const RequestKind &kind) {
        for (const Fault &fault : faults) {
            QTest::addRow("%s, %s, %s", fault.name.constData(), kind.name, scheme)
                << mode << kind << fault;
        }
    });
}

/// A row for every one of \a faults with every kind of request, in the columns "fault" and "kind".
template <typename Fault>
void addFaults(const QList<Fault> &faults)
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<RequestKind>("kind");
    for (const Fault &fault : faults) {
        for (const RequestKind &kind : requestkinds::all())
            QTest::addRow("%s, %s", fault.name.constData(), kind.name) << fault << kind;
    }
}

} // namespace faultrows

#endif // TARVISNET_TESTS_FAULTROWS_H
