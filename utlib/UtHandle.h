#ifndef UTHANDLE_H
#define UTHANDLE_H

#include "utlib/UtExport.h"

/// Base of every reference-counted object. A new object has count 0 and no holder: put it into a
/// UtHandle at once, or it leaks. Not thread-safe.
class UTLIB_EXPORT UtHandable
{
public:
    int references = 0;  ///< number of handles that hold the object

    UtHandable() = default;
    /// A copy is an object of its own and starts without holders.
    UtHandable(const UtHandable&) {}
    virtual ~UtHandable();
    /// Assigning takes over contents, never holders.
    UtHandable& operator=(const UtHandable&) { return *this; }

    /// Counts one more holder.
    void ref() { ++references; }

    /// Counts one holder less; the last one to leave calls notifyDelete().
    void unref()
    {
        if (--references == 0)
            notifyDelete();
    }

    /// Destroys and frees the object. It must then have been made with `new`.
    virtual void notifyDelete();
};

/// Smart pointer to a T derived from UtHandable. Every non-null handle is one holder of its object;
/// the object is destroyed when its last handle lets go of it.
template <class T>
class UtHandle
{
public:
    UtHandle() = default;

    /// Holds p, which may be null. Implicit, so that `new` can go straight into a handle.
    UtHandle(T* p) : object(p)
    {
        if (object)
            object->ref();
    }

    UtHandle(const UtHandle<T>& other) : UtHandle(other.object) {}

    ~UtHandle()
    {
        T* const old = object;
        object = nullptr;
        if (old)
            old->unref();
    }

    UtHandle<T>& operator=(const UtHandle<T>& other)
    {
        T* const old = object;
        object = other.object;
        if (object)
            object->ref();  // before the old one goes: both may be the same object
        if (old)
            old->unref();
        return *this;
    }

    /// The held object, null for an empty handle. The handle stays its holder.
    operator T*() const { return object; }

    /// Access to the held object; the handle must not be empty.
    T* operator->() const { return object; }

private:
    T* object = nullptr;
};

#endif
