#ifndef UTEXPORT_H
#define UTEXPORT_H

/// Marks what libutlib hands to other libraries and programs; everything else stays hidden.
#define UTLIB_EXPORT __attribute__((visibility("default")))

/// Lets the compiler check the arguments of a printf-style function: positions count from 1 and
/// include the hidden `this` of a member function.
#define UT_PRINTF(formatPosition, firstArgument)                                                   \
    __attribute__((format(printf, formatPosition, firstArgument)))

#endif
