#ifndef TARVISNET_TESTS_ONQT6_H
#define TARVISNET_TESTS_ONQT6_H

#include <QtCore/QtGlobal>

/// For what Qt itself does otherwise: docs/qt6.md lists all of it.
constexpr bool onQt6 = QT_VERSION >= QT_VERSION_CHECK(6, 0, 0);

#endif // TARVISNET_TESTS_ONQT6_H
