#ifndef VIEW_TEXT_H
#define VIEW_TEXT_H

#include "jobs/Text.h"

#include <string>

// Texts for a terminal.

/// Run time as "0:07", "12:07" or "1:02:07".
std::string duration(long long seconds);

/// Local date and time, "2026-01-31 14:07:09"; "-" for 0.
std::string dateTime(long long time);

#endif
