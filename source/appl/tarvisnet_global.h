#ifndef TARVISNET_GLOBAL_H
#define TARVISNET_GLOBAL_H

#include <QtCore/qglobal.h>

/// \file
/// The export mark of the public classes.

/// \def TARVISNET_EXPORT
/// Marks what the library exports; applications have no use for it.

#if defined(TARVISNET_LIBRARY)
#define TARVISNET_EXPORT Q_DECL_EXPORT
#else
#define TARVISNET_EXPORT Q_DECL_IMPORT
#endif

#endif // TARVISNET_GLOBAL_H
