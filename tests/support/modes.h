#ifndef TARVISNET_TESTS_MODES_H
#define TARVISNET_TESTS_MODES_H

#include "scriptedserver.h"

#include <QtTest/QTest>

/// Data rows for a test that is to run over HTTP and over HTTPS, in the column "mode".
inline void addModes()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::newRow("HTTP") << ScriptedServer::Mode::Http;
    QTest::newRow("HTTPS") << ScriptedServer::Mode::Https;
}

#endif // TARVISNET_TESTS_MODES_H
