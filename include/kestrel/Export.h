#pragma once

/// `KESTREL_API` marks what the shared library shows to its hosts: every public class with
/// functions that are not inline, and every public free function. All else stays inside.
///
///     class KESTREL_API LMFFMovie { … };
///     KESTREL_API int64_t lm_default_time_base();
///
/// The build defines `KESTREL_BUILDING` while it compiles the library itself; a host that links the
/// objects statically defines `KESTREL_STATIC`.
#if defined(KESTREL_STATIC)
#define KESTREL_API
#elif defined(_WIN32) && defined(KESTREL_BUILDING)
#define KESTREL_API __declspec(dllexport)
#elif defined(_WIN32)
#define KESTREL_API __declspec(dllimport)
#else
#define KESTREL_API __attribute__((visibility("default")))
#endif
