/* liborx: export macro and C linkage guards shared by every public header. */
#ifndef ORX_EXPORT_H
#define ORX_EXPORT_H

#if defined(_WIN32)
#  if defined(ORX_BUILDING_LIBRARY)
#    define ORX_API __declspec(dllexport)
#  else
#    define ORX_API __declspec(dllimport)
#  endif
#else
#  define ORX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#  define ORX_BEGIN_DECLS extern "C" {
#  define ORX_END_DECLS }
#else
#  define ORX_BEGIN_DECLS
#  define ORX_END_DECLS
#endif

/* printf-style argument checking where the compiler offers it. */
#if defined(__GNUC__)
#  define ORX_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#  define ORX_PRINTF(fmt, first)
#endif

#endif /* ORX_EXPORT_H */
