#include "ZoVersion.h"

#include "schedule/ZoSchedule.h"

#include <cstring>

// The marker is found in a file by searching for it; its spread form tells its length without being
// found as well. Both are there for tools that read the file, whatever the optimiser thinks of
// them.
#define MARKER "$KelvoVersion"
#define KEPT __attribute__((used))
KEPT static const char spreadMarker[] = "$.K.e.l.v.o.V.e.r.s.i.o.n.";
KEPT static const char versionRecord[] =
    MARKER "|version_tag|v" ZO_VERSION "|comment|" ZO_DESCRIPTION "|compiler|" ZO_COMPILER
           "|target_os|" ZO_TARGET_OS "|build_cfg|" ZO_BUILD_CFG "|build_user|" ZO_BUILD_USER
           "|build_ip|" ZO_BUILD_IP "|build_time|" ZO_BUILD_TIME
           "|filename|libschedule.so." ZO_VERSION "|path|" ZO_PATH "|size|" ZO_SIZE
           "|vendor|Kelvo|product|Kelvo Schedule|version_major|" ZO_VERSION_MAJOR
           "|version_minor|" ZO_VERSION_MINOR "|version_patch|" ZO_VERSION_PATCH;

const char* kelvopackage_schedule()
{
    return versionRecord + ::strlen(spreadMarker) / 2;
}
