#ifndef TARVISNET_EXPLANATION_P_H
#define TARVISNET_EXPLANATION_P_H

#include "failure_p.h"

/// What is known about a failure, as TransferPolicy::errorsExplained() promises it.
QJsonDocument explanation(const Failure &failure);

#endif // TARVISNET_EXPLANATION_P_H
