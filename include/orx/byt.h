/* liborx: byte-order helpers (the BYT_ family).
 *
 * Each helper moves exactly one scalar value of one type, either between a
 * stream and memory (read, write) or between file order and host order in
 * memory (decode: file to host, encode: host to file).  File order is:
 *
 *   char     8 bits, as is
 *   double   64 bits, host order (deliberately not swapped)
 *   float    32 bits, host order (deliberately not swapped)
 *   int      32 bits, big-endian
 *   long     32 bits, big-endian (long is 32 bits wide in files)
 *   pointer  never stored: an 8-byte slot that always reads back as NULL
 *   short    16 bits, big-endian
 *
 * decode and encode take a source and a destination address that must not
 * overlap.  read and write perform exactly one fread or fwrite of one item of
 * the type's width and return the item count it gave: 1 on success, 0 at end
 * of file or on error.  The pointer helpers never touch the stream: read
 * stores NULL and write writes nothing, and both return 1.  Nothing is
 * reported; after a failed read the destination holds no meaningful value,
 * so test the result before using it.
 */
#ifndef ORX_BYT_H
#define ORX_BYT_H

#include <stdio.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

ORX_API void BYT_decode_char(const void *src, void *dst);
ORX_API int BYT_read_char(FILE *stream, void *dst);
ORX_API void BYT_encode_char(const void *src, void *dst);
ORX_API int BYT_write_char(FILE *stream, const void *src);

ORX_API void BYT_decode_double(const void *src, void *dst);
ORX_API int BYT_read_double(FILE *stream, void *dst);
ORX_API void BYT_encode_double(const void *src, void *dst);
ORX_API int BYT_write_double(FILE *stream, const void *src);

ORX_API void BYT_decode_float(const void *src, void *dst);
ORX_API int BYT_read_float(FILE *stream, void *dst);
ORX_API void BYT_encode_float(const void *src, void *dst);
ORX_API int BYT_write_float(FILE *stream, const void *src);

ORX_API void BYT_decode_int(const void *src, void *dst);
ORX_API int BYT_read_int(FILE *stream, void *dst);
ORX_API void BYT_encode_int(const void *src, void *dst);
ORX_API int BYT_write_int(FILE *stream, const void *src);

ORX_API void BYT_decode_long(const void *src, void *dst);
ORX_API int BYT_read_long(FILE *stream, void *dst);
ORX_API void BYT_encode_long(const void *src, void *dst);
ORX_API int BYT_write_long(FILE *stream, const void *src);

ORX_API void BYT_decode_pointer(const void *src, void *dst);
ORX_API int BYT_read_pointer(FILE *stream, void *dst);
ORX_API void BYT_encode_pointer(const void *src, void *dst);
ORX_API int BYT_write_pointer(FILE *stream, const void *src);

ORX_API void BYT_decode_short(const void *src, void *dst);
ORX_API int BYT_read_short(FILE *stream, void *dst);
ORX_API void BYT_encode_short(const void *src, void *dst);
ORX_API int BYT_write_short(FILE *stream, const void *src);

ORX_END_DECLS

#endif /* ORX_BYT_H */
