#include "schedule/ZoIdentity.h"

#include "utlib/UtEnvironment.h"

#include <QByteArray>

#include <netdb.h>
#include <pwd.h>
#include <unistd.h>

static const long NAME_BUFFER = 1024;

void ZoIdentity::hostName(UtString& name)
{
    char buffer[NAME_BUFFER];
    if (::gethostname(buffer, sizeof buffer) != 0 || buffer[0] == '\0')
        ::strcpy(buffer, "localhost");
    buffer[sizeof buffer - 1] = '\0';  // a cut name may come without its end
    const struct hostent* const entry = ::gethostbyname(buffer);
    const bool isOfficial = entry && entry->h_name && entry->h_name[0];
    name = isOfficial ? entry->h_name : buffer;
}

void ZoIdentity::userAndHome(UtString& user, UtString& home)
{
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
