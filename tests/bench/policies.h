#ifndef TARVISNET_TESTS_POLICIES_H
#define TARVISNET_TESTS_POLICIES_H

#include <tarvisnet/transferpolicy.h>

#include <QtCore/QByteArray>

/// What tests run with besides what they are about.
namespace policies {

/// Whether strict clients are to be fast ones: all that holds of the ones holds of the others.
inline bool areFast()
{
    return qgetenv("TARVISNET_TEST_POLICY") == "fast";
}

/// The policy of strict clients.
inline TransferPolicy strict()
{
    return areFast() ? TransferPolicy::fast() : TransferPolicy::strict();
}

} // namespace policies

#endif // TARVISNET_TESTS_POLICIES_H
