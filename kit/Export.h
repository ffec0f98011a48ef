// Marks what the library shows to its clients; everything else stays hidden.
#pragma once

#if defined(_WIN32) && defined(MS_BUILD_SHARED)
#define MS_API __declspec(dllexport)
#elif defined(_WIN32) && defined(MS_USE_SHARED)
#define MS_API __declspec(dllimport)
#elif defined(_WIN32)
#define MS_API
#else
#define MS_API __attribute__((visibility("default")))
#endif
