#pragma once

// DV_ENV_EXPORT marks what the shared library exports. Everything else is built
// with hidden visibility, so only the names marked here reach `nm -D`.
#if defined(DV_ENV_STATIC)
#  define DV_ENV_EXPORT
#elif defined(_WIN32)
#  if defined(DV_ENV_BUILDING)
#    define DV_ENV_EXPORT __declspec(dllexport)
#  else
#    define DV_ENV_EXPORT __declspec(dllimport)
#  endif
#else
#  define DV_ENV_EXPORT __attribute__((visibility("default")))
#endif
