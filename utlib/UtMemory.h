#ifndef UTMEMORY_H
#define UTMEMORY_H

#include "utlib/UtExport.h"

#include <cstddef>

/// Allocates n bytes. Never returns null: when memory is exhausted, one line goes to standard
/// error and the process aborts, since no caller could go on. Free the block with utfree().
UTLIB_EXPORT void* utmalloc(size_t n);

/// Resizes a block of utmalloc() to n bytes and keeps its contents; a null p allocates. The old
/// address is no longer valid. Never returns null, like utmalloc().
UTLIB_EXPORT void* utrealloc(void* p, size_t n);

/// Frees a block of utmalloc() or utrealloc(); null does nothing.
UTLIB_EXPORT void utfree(void* p);

#endif
