#pragma once

/// `KESTREL_API` marks what the shared library exports: public classes with functions that are not
/// inline, and public free functions. Everything else is hidden.
///
///     class KESTREL_API LMFFMovie { … };
///     KESTREL_API int64_t lm_default_time_base();
///
/// The build defines `KESTREL_BUILDING` when compiling the library; a host that links it statically
/// defines `KESTREL_STATIC`.
#if defined(KESTREL_STATIC)
#define KESTREL_API
#elif defined(_WIN32) && defined(KESTREL_BUILDING)
#define KESTREL_API __declspec(dllexport)
#elif defined(_WIN32)
#define KESTREL_API __declspec(dllimport)
#else
#define KESTREL_API __attribute__((visibility("default")))
#endif
