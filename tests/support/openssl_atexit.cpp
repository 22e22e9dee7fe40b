#include <openssl/crypto.h>

/// \file
/// For programs under the address sanitizer, which load it with the library. Qt's HTTP thread may
/// still be freeing what OpenSSL keeps for it when main() returns. OpenSSL would then free that
/// too, at exit, and one run in a thousand ends with a double free that no code here has part in.

namespace {

[[maybe_unused]] const int isKept = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);

} // namespace
