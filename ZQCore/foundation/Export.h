#pragma once

// The library is built with hidden symbols (-fvisibility=hidden), so only what an application is
// meant to reach is exported from libZQCore.so: the classes and functions of the installed headers
// carry ZQ_EXPORT. Classes need it whole (not member by member) so that their type information is
// shared with the application: an exception thrown in the library is then caught by type outside
// it, and dynamic_cast between, say, ZQCoreiPodRef and AFCiPodRef works across the boundary.
#if defined(__GNUC__) || defined(__clang__)
#define ZQ_EXPORT __attribute__((visibility("default")))
#else
#define ZQ_EXPORT
#endif
