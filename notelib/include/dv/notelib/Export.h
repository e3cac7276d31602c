#pragma once

// DV_NOTELIB_EXPORT marks what the message library exports; everything else is
// built with hidden visibility.
#if defined(DV_NOTELIB_STATIC)
#  define DV_NOTELIB_EXPORT
#elif defined(_WIN32)
#  if defined(DV_NOTELIB_BUILDING)
#    define DV_NOTELIB_EXPORT __declspec(dllexport)
#  else
#    define DV_NOTELIB_EXPORT __declspec(dllimport)
#  endif
#else
#  define DV_NOTELIB_EXPORT __attribute__((visibility("default")))
#endif
