#ifndef ZOMUTEXHELD_H
#define ZOMUTEXHELD_H

#include <pthread.h>

/// Holds a mutex as long as the object lives: of one process, a window may call us from a thread of
/// its own while the application does so from another.
class ZoMutexHeld
{
public:
    explicit ZoMutexHeld(pthread_mutex_t& which) : mutex(which) { ::pthread_mutex_lock(&mutex); }
    ~ZoMutexHeld() { ::pthread_mutex_unlock(&mutex); }
    ZoMutexHeld(const ZoMutexHeld&) = delete;
    ZoMutexHeld& operator=(const ZoMutexHeld&) = delete;

private:
    pthread_mutex_t& mutex;
};

#endif
