#pragma once

#include <cutils/trace.h>
#include <utils/Trace.h>

// Every trace section and counter of the library goes under one tag.
#define TALVEX_TRACE_TAG ATRACE_TAG_ALWAYS

#define TALVEX_TRACE_CONCAT_INNER(a, b) a##b
#define TALVEX_TRACE_CONCAT(a, b) TALVEX_TRACE_CONCAT_INNER(a, b)

// A trace section from here to the end of the enclosing scope.
#define TALVEX_TRACE_SCOPE(name) \
    ::android::ScopedTrace TALVEX_TRACE_CONCAT(talvexTrace_, __LINE__)(TALVEX_TRACE_TAG, (name))

namespace Basics {

// Guard for counter values that cost something to compute.
inline bool IsTraceEnabled() { return (atrace_get_enabled_tags() & TALVEX_TRACE_TAG) != 0; }

}  // namespace Basics
