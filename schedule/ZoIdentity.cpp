#include "schedule/ZoIdentity.h"

#include "schedule/ZoMutexHeld.h"
#include "utlib/UtClock.h"
#include "utlib/UtEnvironment.h"

#include <QByteArray>

#include <netdb.h>
#include <pwd.h>
#include <unistd.h>

static const long NAME_BUFFER = 1024;

static const long long SLOW = 1000;             // ms that a look-up may take without a word
static const long long REMEMBERED = 60 * 1000;  // ms for which the result of a slow one serves

// The results of both look-ups lie in buffers that the whole process has once.
static pthread_mutex_t theLookUpMutex = PTHREAD_MUTEX_INITIALIZER;

void (*ZoIdentity::onSlowLookup)(const char*, const char*, double) = nullptr;

/// A look-up that was slow.
struct SlowLookup {
    UtString asked;
    UtString official;
    long long took = 0;  ///< ms; 0: there was none
    long long until = 0;
};

static thread_local SlowLookup theSlow;

/// The official name of a machine; the name itself where it does not resolve.
static void lookUp(const char* asked, UtString& name)
{
    const ZoMutexHeld held(theLookUpMutex);
    const struct hostent* const entry = ::gethostbyname(asked);
    const bool isOfficial = entry && entry->h_name && entry->h_name[0];
    name = isOfficial ? entry->h_name : asked;
}

void ZoIdentity::hostName(UtString& name)
{
    char buffer[NAME_BUFFER];
    if (::gethostname(buffer, sizeof buffer) != 0 || buffer[0] == '\0')
        ::strcpy(buffer, "localhost");
    buffer[sizeof buffer - 1] = '\0';  // a cut name may come without its end
    const long long start = UtClock::now();
    if (start < theSlow.until && theSlow.asked == buffer) {
        name = theSlow.official;
        return;
    }
    lookUp(buffer, name);
    const long long end = UtClock::now();
    theSlow.took = end - start > SLOW ? end - start : 0;
    if (theSlow.took == 0)
        return;
    theSlow.asked = buffer;
    theSlow.official = name;
    theSlow.until = end + REMEMBERED;
    if (onSlowLookup)
        onSlowLookup(buffer, name, (double)theSlow.took / 1000);
}

long long ZoIdentity::slowLookupTime()
{
    return theSlow.took;
}

void ZoIdentity::userAndHome(UtString& user, UtString& home)
{
    const ZoMutexHeld held(theLookUpMutex);
    if (const struct passwd* const entry = ::getpwuid(::getuid())) {
        user = entry->pw_name;
        home = entry->pw_dir;
    } else {
        user = UtEnvironment::getValue(QString::fromLatin1("USER"), true).toUtf8().constData();
        home = UtEnvironment::getValue(QString::fromLatin1("HOME"), true).toUtf8().constData();
    }
    if (user.length() == 0)
        user = "user";
    if (home.length() == 0)
        home = "/";
}
