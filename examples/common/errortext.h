#ifndef ERRORTEXT_H
#define ERRORTEXT_H

#include <QtCore/QString>

/// What a code of errorcodes means, in words for the user.
QString errorText(short code);

/// Whether the request that a code is about has come to its end with it.
bool endsRequest(short code);

#endif // ERRORTEXT_H
