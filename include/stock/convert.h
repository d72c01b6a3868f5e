/*
 * convert.h - convert numbers between the host and packed data in another byte order.
 *
 * Each function converts an array of n numbers in one direction. Its name is the source, "2",
 * and the destination. The host's side is written as h and a type letter, the external side as
 * an order letter and a type letter. With a leading u the integers on both sides are unsigned.
 *
 *     order    bytes of the external value
 *     m        most significant first (big-endian)
 *     a, v     least significant first (little-endian); both do the same
 *
 *     type     host type           external
 *     b        signed char         1 byte, two's complement
 *     s        short               2 bytes
 *     i        int                 4 bytes
 *     l        long                8 bytes
 *     f        float               4 bytes, IEEE 754 single precision
 *     d        double              8 bytes, IEEE 754 double precision
 *
 * So ms2hd reads big-endian shorts into doubles, and uhl2ab writes unsigned longs as
 * little-endian bytes. There is no u if both types are floating-point.
 *
 * From external to host, int Xt2hy(char **src, y *dst, int n) reads n values from the address
 * *src, stores them in dst[0] to dst[n-1], and moves *src past them. From host to external,
 * int hy2Xt(const y *src, char **dst, int n) writes src[0] to src[n-1] to the address *dst and
 * moves *dst past them. So successive calls read or write a record field by field. External
 * data need not be aligned.
 *
 * The result is 0 if every value was converted exactly, and -1 if one was not; all n are
 * converted in both cases. A value that does not fit is cut when it is read, and becomes the
 * nearer limit when it is written:
 *
 *     value                                  read                    written
 *     integer too large for the integer      its low bits, -1        the limit, -1
 *     fraction into an integer               cut off, -1             cut off, 0
 *     floating value too large for integer   see below, -1           the limit, -1
 *     NaN into an integer                    see below, -1           see below, -1
 *     integer that floating cannot hold      the nearest value, -1   the same
 *     double that float cannot hold          the nearest float, -1   the same
 *     NaN between float and double           NaN, -1                 the same
 *     any value into its own type            bit by bit, 0           the same
 *
 *     mi2hs    70000    4464, -1             hi2ms    70000    32767, -1
 *     md2hi    2.5      2, -1                hd2mi    2.5      2, 0
 *     ms2hi    -1       -1, 0                hs2ab    -200     -128, -1
 *     ums2hi   65535    65535, 0             uhf2ms   -1.5     0, -1
 *
 * A fraction beyond a limit counts too: 32767.5 written as a short is 32767, and the result is
 * -1; -0.5 written as unsigned is 0, and the result is -1.
 *
 * A floating value that an integer cannot hold becomes, on every host, what the conversion
 * instructions of x86-64 return. For integers of 8 and 16 bits and for signed ones of 32, the
 * value is truncated to a signed 32-bit integer, whose low bits are the result; if it does not
 * fit into 32 bits, or is NaN, that integer is -2^31. For unsigned integers of 32 bits and
 * integers of 64, the same is done with 64 bits and -2^63. Unsigned 64-bit integers also hold
 * values from 2^63 to 2^64.
 *
 * If n is negative, nothing is converted and the result is -1. Source and destination may begin
 * at the same address if the values are no wider in the destination; otherwise they must not
 * overlap. Rounding is to nearest, the default when a program starts. The functions allocate and
 * share nothing: any thread may call them at any time.
 */

#ifndef STOCK_CONVERT_H
#define STOCK_CONVERT_H

#include "stock/export.h"

STOCK_BEGIN_DECLS

/* External big-endian 8-bit integers to host. */
STOCK_API int mb2hb(char **src, signed char *dst, int n);
STOCK_API int mb2hs(char **src, short *dst, int n);
STOCK_API int mb2hi(char **src, int *dst, int n);
STOCK_API int mb2hl(char **src, long *dst, int n);
STOCK_API int mb2hf(char **src, float *dst, int n);
STOCK_API int mb2hd(char **src, double *dst, int n);
STOCK_API int umb2hb(char **src, unsigned char *dst, int n);
STOCK_API int umb2hs(char **src, unsigned short *dst, int n);
STOCK_API int umb2hi(char **src, unsigned int *dst, int n);
STOCK_API int umb2hl(char **src, unsigned long *dst, int n);
STOCK_API int umb2hf(char **src, float *dst, int n);
STOCK_API int umb2hd(char **src, double *dst, int n);

/* Host to external big-endian 8-bit integers. */
STOCK_API int hb2mb(const signed char *src, char **dst, int n);
STOCK_API int hs2mb(const short *src, char **dst, int n);
STOCK_API int hi2mb(const int *src, char **dst, int n);
STOCK_API int hl2mb(const long *src, char **dst, int n);
STOCK_API int hf2mb(const float *src, char **dst, int n);
STOCK_API int hd2mb(const double *src, char **dst, int n);
STOCK_API int uhb2mb(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2mb(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2mb(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2mb(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2mb(const float *src, char **dst, int n);
STOCK_API int uhd2mb(const double *src, char **dst, int n);

/* External big-endian 16-bit integers to host. */
STOCK_API int ms2hb(char **src, signed char *dst, int n);
STOCK_API int ms2hs(char **src, short *dst, int n);
STOCK_API int ms2hi(char **src, int *dst, int n);
STOCK_API int ms2hl(char **src, long *dst, int n);
STOCK_API int ms2hf(char **src, float *dst, int n);
STOCK_API int ms2hd(char **src, double *dst, int n);
STOCK_API int ums2hb(char **src, unsigned char *dst, int n);
STOCK_API int ums2hs(char **src, unsigned short *dst, int n);
STOCK_API int ums2hi(char **src, unsigned int *dst, int n);
STOCK_API int ums2hl(char **src, unsigned long *dst, int n);
STOCK_API int ums2hf(char **src, float *dst, int n);
STOCK_API int ums2hd(char **src, double *dst, int n);

/* Host to external big-endian 16-bit integers. */
STOCK_API int hb2ms(const signed char *src, char **dst, int n);
STOCK_API int hs2ms(const short *src, char **dst, int n);
STOCK_API int hi2ms(const int *src, char **dst, int n);
STOCK_API int hl2ms(const long *src, char **dst, int n);
STOCK_API int hf2ms(const float *src, char **dst, int n);
STOCK_API int hd2ms(const double *src, char **dst, int n);
STOCK_API int uhb2ms(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2ms(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2ms(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2ms(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2ms(const float *src, char **dst, int n);
STOCK_API int uhd2ms(const double *src, char **dst, int n);

/* External big-endian 32-bit integers to host. */
STOCK_API int mi2hb(char **src, signed char *dst, int n);
STOCK_API int mi2hs(char **src, short *dst, int n);
STOCK_API int mi2hi(char **src, int *dst, int n);
STOCK_API int mi2hl(char **src, long *dst, int n);
STOCK_API int mi2hf(char **src, float *dst, int n);
STOCK_API int mi2hd(char **src, double *dst, int n);
STOCK_API int umi2hb(char **src, unsigned char *dst, int n);
STOCK_API int umi2hs(char **src, unsigned short *dst, int n);
STOCK_API int umi2hi(char **src, unsigned int *dst, int n);
STOCK_API int umi2hl(char **src, unsigned long *dst, int n);
STOCK_API int umi2hf(char **src, float *dst, int n);
STOCK_API int umi2hd(char **src, double *dst, int n);

/* Host to external big-endian 32-bit integers. */
STOCK_API int hb2mi(const signed char *src, char **dst, int n);
STOCK_API int hs2mi(const short *src, char **dst, int n);
STOCK_API int hi2mi(const int *src, char **dst, int n);
STOCK_API int hl2mi(const long *src, char **dst, int n);
STOCK_API int hf2mi(const float *src, char **dst, int n);
STOCK_API int hd2mi(const double *src, char **dst, int n);
STOCK_API int uhb2mi(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2mi(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2mi(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2mi(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2mi(const float *src, char **dst, int n);
STOCK_API int uhd2mi(const double *src, char **dst, int n);

/* External big-endian 64-bit integers to host. */
STOCK_API int ml2hb(char **src, signed char *dst, int n);
STOCK_API int ml2hs(char **src, short *dst, int n);
STOCK_API int ml2hi(char **src, int *dst, int n);
STOCK_API int ml2hl(char **src, long *dst, int n);
STOCK_API int ml2hf(char **src, float *dst, int n);
STOCK_API int ml2hd(char **src, double *dst, int n);
STOCK_API int uml2hb(char **src, unsigned char *dst, int n);
STOCK_API int uml2hs(char **src, unsigned short *dst, int n);
STOCK_API int uml2hi(char **src, unsigned int *dst, int n);
STOCK_API int uml2hl(char **src, unsigned long *dst, int n);
STOCK_API int uml2hf(char **src, float *dst, int n);
STOCK_API int uml2hd(char **src, double *dst, int n);

/* Host to external big-endian 64-bit integers. */
STOCK_API int hb2ml(const signed char *src, char **dst, int n);
STOCK_API int hs2ml(const short *src, char **dst, int n);
STOCK_API int hi2ml(const int *src, char **dst, int n);
STOCK_API int hl2ml(const long *src, char **dst, int n);
STOCK_API int hf2ml(const float *src, char **dst, int n);
STOCK_API int hd2ml(const double *src, char **dst, int n);
STOCK_API int uhb2ml(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2ml(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2ml(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2ml(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2ml(const float *src, char **dst, int n);
STOCK_API int uhd2ml(const double *src, char **dst, int n);

/* External big-endian single precision to host. */
STOCK_API int mf2hb(char **src, signed char *dst, int n);
STOCK_API int mf2hs(char **src, short *dst, int n);
STOCK_API int mf2hi(char **src, int *dst, int n);
STOCK_API int mf2hl(char **src, long *dst, int n);
STOCK_API int mf2hf(char **src, float *dst, int n);
STOCK_API int mf2hd(char **src, double *dst, int n);
STOCK_API int umf2hb(char **src, unsigned char *dst, int n);
STOCK_API int umf2hs(char **src, unsigned short *dst, int n);
STOCK_API int umf2hi(char **src, unsigned int *dst, int n);
STOCK_API int umf2hl(char **src, unsigned long *dst, int n);

/* Host to external big-endian single precision. */
STOCK_API int hb2mf(const signed char *src, char **dst, int n);
STOCK_API int hs2mf(const short *src, char **dst, int n);
STOCK_API int hi2mf(const int *src, char **dst, int n);
STOCK_API int hl2mf(const long *src, char **dst, int n);
STOCK_API int hf2mf(const float *src, char **dst, int n);
STOCK_API int hd2mf(const double *src, char **dst, int n);
STOCK_API int uhb2mf(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2mf(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2mf(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2mf(const unsigned long *src, char **dst, int n);

/* External big-endian double precision to host. */
STOCK_API int md2hb(char **src, signed char *dst, int n);
STOCK_API int md2hs(char **src, short *dst, int n);
STOCK_API int md2hi(char **src, int *dst, int n);
STOCK_API int md2hl(char **src, long *dst, int n);
STOCK_API int md2hf(char **src, float *dst, int n);
STOCK_API int md2hd(char **src, double *dst, int n);
STOCK_API int umd2hb(char **src, unsigned char *dst, int n);
STOCK_API int umd2hs(char **src, unsigned short *dst, int n);
STOCK_API int umd2hi(char **src, unsigned int *dst, int n);
STOCK_API int umd2hl(char **src, unsigned long *dst, int n);

/* Host to external big-endian double precision. */
STOCK_API int hb2md(const signed char *src, char **dst, int n);
STOCK_API int hs2md(const short *src, char **dst, int n);
STOCK_API int hi2md(const int *src, char **dst, int n);
STOCK_API int hl2md(const long *src, char **dst, int n);
STOCK_API int hf2md(const float *src, char **dst, int n);
STOCK_API int hd2md(const double *src, char **dst, int n);
STOCK_API int uhb2md(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2md(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2md(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2md(const unsigned long *src, char **dst, int n);

/* External little-endian 8-bit integers to host. */
STOCK_API int ab2hb(char **src, signed char *dst, int n);
STOCK_API int ab2hs(char **src, short *dst, int n);
STOCK_API int ab2hi(char **src, int *dst, int n);
STOCK_API int ab2hl(char **src, long *dst, int n);
STOCK_API int ab2hf(char **src, float *dst, int n);
STOCK_API int ab2hd(char **src, double *dst, int n);
STOCK_API int uab2hb(char **src, unsigned char *dst, int n);
STOCK_API int uab2hs(char **src, unsigned short *dst, int n);
STOCK_API int uab2hi(char **src, unsigned int *dst, int n);
STOCK_API int uab2hl(char **src, unsigned long *dst, int n);
STOCK_API int uab2hf(char **src, float *dst, int n);
STOCK_API int uab2hd(char **src, double *dst, int n);

/* Host to external little-endian 8-bit integers. */
STOCK_API int hb2ab(const signed char *src, char **dst, int n);
STOCK_API int hs2ab(const short *src, char **dst, int n);
STOCK_API int hi2ab(const int *src, char **dst, int n);
STOCK_API int hl2ab(const long *src, char **dst, int n);
STOCK_API int hf2ab(const float *src, char **dst, int n);
STOCK_API int hd2ab(const double *src, char **dst, int n);
STOCK_API int uhb2ab(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2ab(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2ab(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2ab(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2ab(const float *src, char **dst, int n);
STOCK_API int uhd2ab(const double *src, char **dst, int n);

/* External little-endian 16-bit integers to host. */
STOCK_API int as2hb(char **src, signed char *dst, int n);
STOCK_API int as2hs(char **src, short *dst, int n);
STOCK_API int as2hi(char **src, int *dst, int n);
STOCK_API int as2hl(char **src, long *dst, int n);
STOCK_API int as2hf(char **src, float *dst, int n);
STOCK_API int as2hd(char **src, double *dst, int n);
STOCK_API int uas2hb(char **src, unsigned char *dst, int n);
STOCK_API int uas2hs(char **src, unsigned short *dst, int n);
STOCK_API int uas2hi(char **src, unsigned int *dst, int n);
STOCK_API int uas2hl(char **src, unsigned long *dst, int n);
STOCK_API int uas2hf(char **src, float *dst, int n);
STOCK_API int uas2hd(char **src, double *dst, int n);

/* Host to external little-endian 16-bit integers. */
STOCK_API int hb2as(const signed char *src, char **dst, int n);
STOCK_API int hs2as(const short *src, char **dst, int n);
STOCK_API int hi2as(const int *src, char **dst, int n);
STOCK_API int hl2as(const long *src, char **dst, int n);
STOCK_API int hf2as(const float *src, char **dst, int n);
STOCK_API int hd2as(const double *src, char **dst, int n);
STOCK_API int uhb2as(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2as(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2as(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2as(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2as(const float *src, char **dst, int n);
STOCK_API int uhd2as(const double *src, char **dst, int n);

/* External little-endian 32-bit integers to host. */
STOCK_API int ai2hb(char **src, signed char *dst, int n);
STOCK_API int ai2hs(char **src, short *dst, int n);
STOCK_API int ai2hi(char **src, int *dst, int n);
STOCK_API int ai2hl(char **src, long *dst, int n);
STOCK_API int ai2hf(char **src, float *dst, int n);
STOCK_API int ai2hd(char **src, double *dst, int n);
STOCK_API int uai2hb(char **src, unsigned char *dst, int n);
STOCK_API int uai2hs(char **src, unsigned short *dst, int n);
STOCK_API int uai2hi(char **src, unsigned int *dst, int n);
STOCK_API int uai2hl(char **src, unsigned long *dst, int n);
STOCK_API int uai2hf(char **src, float *dst, int n);
STOCK_API int uai2hd(char **src, double *dst, int n);

/* Host to external little-endian 32-bit integers. */
STOCK_API int hb2ai(const signed char *src, char **dst, int n);
STOCK_API int hs2ai(const short *src, char **dst, int n);
STOCK_API int hi2ai(const int *src, char **dst, int n);
STOCK_API int hl2ai(const long *src, char **dst, int n);
STOCK_API int hf2ai(const float *src, char **dst, int n);
STOCK_API int hd2ai(const double *src, char **dst, int n);
STOCK_API int uhb2ai(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2ai(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2ai(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2ai(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2ai(const float *src, char **dst, int n);
STOCK_API int uhd2ai(const double *src, char **dst, int n);

/* External little-endian 64-bit integers to host. */
STOCK_API int al2hb(char **src, signed char *dst, int n);
STOCK_API int al2hs(char **src, short *dst, int n);
STOCK_API int al2hi(char **src, int *dst, int n);
STOCK_API int al2hl(char **src, long *dst, int n);
STOCK_API int al2hf(char **src, float *dst, int n);
STOCK_API int al2hd(char **src, double *dst, int n);
STOCK_API int ual2hb(char **src, unsigned char *dst, int n);
STOCK_API int ual2hs(char **src, unsigned short *dst, int n);
STOCK_API int ual2hi(char **src, unsigned int *dst, int n);
STOCK_API int ual2hl(char **src, unsigned long *dst, int n);
STOCK_API int ual2hf(char **src, float *dst, int n);
STOCK_API int ual2hd(char **src, double *dst, int n);

/* Host to external little-endian 64-bit integers. */
STOCK_API int hb2al(const signed char *src, char **dst, int n);
STOCK_API int hs2al(const short *src, char **dst, int n);
STOCK_API int hi2al(const int *src, char **dst, int n);
STOCK_API int hl2al(const long *src, char **dst, int n);
STOCK_API int hf2al(const float *src, char **dst, int n);
STOCK_API int hd2al(const double *src, char **dst, int n);
STOCK_API int uhb2al(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2al(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2al(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2al(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2al(const float *src, char **dst, int n);
STOCK_API int uhd2al(const double *src, char **dst, int n);

/* External little-endian single precision to host. */
STOCK_API int af2hb(char **src, signed char *dst, int n);
STOCK_API int af2hs(char **src, short *dst, int n);
STOCK_API int af2hi(char **src, int *dst, int n);
STOCK_API int af2hl(char **src, long *dst, int n);
STOCK_API int af2hf(char **src, float *dst, int n);
STOCK_API int af2hd(char **src, double *dst, int n);
STOCK_API int uaf2hb(char **src, unsigned char *dst, int n);
STOCK_API int uaf2hs(char **src, unsigned short *dst, int n);
STOCK_API int uaf2hi(char **src, unsigned int *dst, int n);
STOCK_API int uaf2hl(char **src, unsigned long *dst, int n);

/* Host to external little-endian single precision. */
STOCK_API int hb2af(const signed char *src, char **dst, int n);
STOCK_API int hs2af(const short *src, char **dst, int n);
STOCK_API int hi2af(const int *src, char **dst, int n);
STOCK_API int hl2af(const long *src, char **dst, int n);
STOCK_API int hf2af(const float *src, char **dst, int n);
STOCK_API int hd2af(const double *src, char **dst, int n);
STOCK_API int uhb2af(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2af(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2af(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2af(const unsigned long *src, char **dst, int n);

/* External little-endian double precision to host. */
STOCK_API int ad2hb(char **src, signed char *dst, int n);
STOCK_API int ad2hs(char **src, short *dst, int n);
STOCK_API int ad2hi(char **src, int *dst, int n);
STOCK_API int ad2hl(char **src, long *dst, int n);
STOCK_API int ad2hf(char **src, float *dst, int n);
STOCK_API int ad2hd(char **src, double *dst, int n);
STOCK_API int uad2hb(char **src, unsigned char *dst, int n);
STOCK_API int uad2hs(char **src, unsigned short *dst, int n);
STOCK_API int uad2hi(char **src, unsigned int *dst, int n);
STOCK_API int uad2hl(char **src, unsigned long *dst, int n);

/* Host to external little-endian double precision. */
STOCK_API int hb2ad(const signed char *src, char **dst, int n);
STOCK_API int hs2ad(const short *src, char **dst, int n);
STOCK_API int hi2ad(const int *src, char **dst, int n);
STOCK_API int hl2ad(const long *src, char **dst, int n);
STOCK_API int hf2ad(const float *src, char **dst, int n);
STOCK_API int hd2ad(const double *src, char **dst, int n);
STOCK_API int uhb2ad(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2ad(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2ad(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2ad(const unsigned long *src, char **dst, int n);

/* External little-endian 8-bit integers to host. */
STOCK_API int vb2hb(char **src, signed char *dst, int n);
STOCK_API int vb2hs(char **src, short *dst, int n);
STOCK_API int vb2hi(char **src, int *dst, int n);
STOCK_API int vb2hl(char **src, long *dst, int n);
STOCK_API int vb2hf(char **src, float *dst, int n);
STOCK_API int vb2hd(char **src, double *dst, int n);
STOCK_API int uvb2hb(char **src, unsigned char *dst, int n);
STOCK_API int uvb2hs(char **src, unsigned short *dst, int n);
STOCK_API int uvb2hi(char **src, unsigned int *dst, int n);
STOCK_API int uvb2hl(char **src, unsigned long *dst, int n);
STOCK_API int uvb2hf(char **src, float *dst, int n);
STOCK_API int uvb2hd(char **src, double *dst, int n);

/* Host to external little-endian 8-bit integers. */
STOCK_API int hb2vb(const signed char *src, char **dst, int n);
STOCK_API int hs2vb(const short *src, char **dst, int n);
STOCK_API int hi2vb(const int *src, char **dst, int n);
STOCK_API int hl2vb(const long *src, char **dst, int n);
STOCK_API int hf2vb(const float *src, char **dst, int n);
STOCK_API int hd2vb(const double *src, char **dst, int n);
STOCK_API int uhb2vb(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2vb(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2vb(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2vb(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2vb(const float *src, char **dst, int n);
STOCK_API int uhd2vb(const double *src, char **dst, int n);

/* External little-endian 16-bit integers to host. */
STOCK_API int vs2hb(char **src, signed char *dst, int n);
STOCK_API int vs2hs(char **src, short *dst, int n);
STOCK_API int vs2hi(char **src, int *dst, int n);
STOCK_API int vs2hl(char **src, long *dst, int n);
STOCK_API int vs2hf(char **src, float *dst, int n);
STOCK_API int vs2hd(char **src, double *dst, int n);
STOCK_API int uvs2hb(char **src, unsigned char *dst, int n);
STOCK_API int uvs2hs(char **src, unsigned short *dst, int n);
STOCK_API int uvs2hi(char **src, unsigned int *dst, int n);
STOCK_API int uvs2hl(char **src, unsigned long *dst, int n);
STOCK_API int uvs2hf(char **src, float *dst, int n);
STOCK_API int uvs2hd(char **src, double *dst, int n);

/* Host to external little-endian 16-bit integers. */
STOCK_API int hb2vs(const signed char *src, char **dst, int n);
STOCK_API int hs2vs(const short *src, char **dst, int n);
STOCK_API int hi2vs(const int *src, char **dst, int n);
STOCK_API int hl2vs(const long *src, char **dst, int n);
STOCK_API int hf2vs(const float *src, char **dst, int n);
STOCK_API int hd2vs(const double *src, char **dst, int n);
STOCK_API int uhb2vs(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2vs(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2vs(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2vs(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2vs(const float *src, char **dst, int n);
STOCK_API int uhd2vs(const double *src, char **dst, int n);

/* External little-endian 32-bit integers to host. */
STOCK_API int vi2hb(char **src, signed char *dst, int n);
STOCK_API int vi2hs(char **src, short *dst, int n);
STOCK_API int vi2hi(char **src, int *dst, int n);
STOCK_API int vi2hl(char **src, long *dst, int n);
STOCK_API int vi2hf(char **src, float *dst, int n);
STOCK_API int vi2hd(char **src, double *dst, int n);
STOCK_API int uvi2hb(char **src, unsigned char *dst, int n);
STOCK_API int uvi2hs(char **src, unsigned short *dst, int n);
STOCK_API int uvi2hi(char **src, unsigned int *dst, int n);
STOCK_API int uvi2hl(char **src, unsigned long *dst, int n);
STOCK_API int uvi2hf(char **src, float *dst, int n);
STOCK_API int uvi2hd(char **src, double *dst, int n);

/* Host to external little-endian 32-bit integers. */
STOCK_API int hb2vi(const signed char *src, char **dst, int n);
STOCK_API int hs2vi(const short *src, char **dst, int n);
STOCK_API int hi2vi(const int *src, char **dst, int n);
STOCK_API int hl2vi(const long *src, char **dst, int n);
STOCK_API int hf2vi(const float *src, char **dst, int n);
STOCK_API int hd2vi(const double *src, char **dst, int n);
STOCK_API int uhb2vi(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2vi(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2vi(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2vi(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2vi(const float *src, char **dst, int n);
STOCK_API int uhd2vi(const double *src, char **dst, int n);

/* External little-endian 64-bit integers to host. */
STOCK_API int vl2hb(char **src, signed char *dst, int n);
STOCK_API int vl2hs(char **src, short *dst, int n);
STOCK_API int vl2hi(char **src, int *dst, int n);
STOCK_API int vl2hl(char **src, long *dst, int n);
STOCK_API int vl2hf(char **src, float *dst, int n);
STOCK_API int vl2hd(char **src, double *dst, int n);
STOCK_API int uvl2hb(char **src, unsigned char *dst, int n);
STOCK_API int uvl2hs(char **src, unsigned short *dst, int n);
STOCK_API int uvl2hi(char **src, unsigned int *dst, int n);
STOCK_API int uvl2hl(char **src, unsigned long *dst, int n);
STOCK_API int uvl2hf(char **src, float *dst, int n);
STOCK_API int uvl2hd(char **src, double *dst, int n);

/* Host to external little-endian 64-bit integers. */
STOCK_API int hb2vl(const signed char *src, char **dst, int n);
STOCK_API int hs2vl(const short *src, char **dst, int n);
STOCK_API int hi2vl(const int *src, char **dst, int n);
STOCK_API int hl2vl(const long *src, char **dst, int n);
STOCK_API int hf2vl(const float *src, char **dst, int n);
STOCK_API int hd2vl(const double *src, char **dst, int n);
STOCK_API int uhb2vl(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2vl(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2vl(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2vl(const unsigned long *src, char **dst, int n);
STOCK_API int uhf2vl(const float *src, char **dst, int n);
STOCK_API int uhd2vl(const double *src, char **dst, int n);

/* External little-endian single precision to host. */
STOCK_API int vf2hb(char **src, signed char *dst, int n);
STOCK_API int vf2hs(char **src, short *dst, int n);
STOCK_API int vf2hi(char **src, int *dst, int n);
STOCK_API int vf2hl(char **src, long *dst, int n);
STOCK_API int vf2hf(char **src, float *dst, int n);
STOCK_API int vf2hd(char **src, double *dst, int n);
STOCK_API int uvf2hb(char **src, unsigned char *dst, int n);
STOCK_API int uvf2hs(char **src, unsigned short *dst, int n);
STOCK_API int uvf2hi(char **src, unsigned int *dst, int n);
STOCK_API int uvf2hl(char **src, unsigned long *dst, int n);

/* Host to external little-endian single precision. */
STOCK_API int hb2vf(const signed char *src, char **dst, int n);
STOCK_API int hs2vf(const short *src, char **dst, int n);
STOCK_API int hi2vf(const int *src, char **dst, int n);
STOCK_API int hl2vf(const long *src, char **dst, int n);
STOCK_API int hf2vf(const float *src, char **dst, int n);
STOCK_API int hd2vf(const double *src, char **dst, int n);
STOCK_API int uhb2vf(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2vf(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2vf(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2vf(const unsigned long *src, char **dst, int n);

/* External little-endian double precision to host. */
STOCK_API int vd2hb(char **src, signed char *dst, int n);
STOCK_API int vd2hs(char **src, short *dst, int n);
STOCK_API int vd2hi(char **src, int *dst, int n);
STOCK_API int vd2hl(char **src, long *dst, int n);
STOCK_API int vd2hf(char **src, float *dst, int n);
STOCK_API int vd2hd(char **src, double *dst, int n);
STOCK_API int uvd2hb(char **src, unsigned char *dst, int n);
STOCK_API int uvd2hs(char **src, unsigned short *dst, int n);
STOCK_API int uvd2hi(char **src, unsigned int *dst, int n);
STOCK_API int uvd2hl(char **src, unsigned long *dst, int n);

/* Host to external little-endian double precision. */
STOCK_API int hb2vd(const signed char *src, char **dst, int n);
STOCK_API int hs2vd(const short *src, char **dst, int n);
STOCK_API int hi2vd(const int *src, char **dst, int n);
STOCK_API int hl2vd(const long *src, char **dst, int n);
STOCK_API int hf2vd(const float *src, char **dst, int n);
STOCK_API int hd2vd(const double *src, char **dst, int n);
STOCK_API int uhb2vd(const unsigned char *src, char **dst, int n);
STOCK_API int uhs2vd(const unsigned short *src, char **dst, int n);
STOCK_API int uhi2vd(const unsigned int *src, char **dst, int n);
STOCK_API int uhl2vd(const unsigned long *src, char **dst, int n);

STOCK_END_DECLS

#endif
