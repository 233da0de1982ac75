#ifndef PORTOWNER_H
#define PORTOWNER_H

#include "window/QueueTypes.h"

/// Finds out who listens on the server's port of this machine without connecting to it: a
/// connection would keep an idle server awake. Fills in `server` and `serverText`.
void lookAtPort(QueueSnapshot& queue);

#endif
