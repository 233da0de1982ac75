#include "zojob/view/Text.h"

#include <cstdio>
#include <ctime>

std::string duration(long long seconds)
{
    if (seconds < 0)  // the clock was set back meanwhile
        seconds = 0;
    const long long hours = seconds / 3600;
    const int minutes = (int)(seconds / 60 % 60);
    char text[64];
    if (hours > 0)
        std::snprintf(text, sizeof text, "%lld:%02d:%02d", hours, minutes, (int)(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%d:%02d", minutes, (int)(seconds % 60));
    return text;
}

std::string dateTime(long long time)
{
    const std::time_t seconds = (std::time_t)time;
    std::tm fields;
    char text[64];
    if (time == 0 || !::localtime_r(&seconds, &fields) ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields) == 0)
        return "-";
    return text;
}
