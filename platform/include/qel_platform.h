#ifndef QEL_PLATFORM_H
#define QEL_PLATFORM_H
/* The services of the host platform. No call throws or ends the process; all may be made from any thread,
   but one thread at a time uses a field list, a decimal or an error buffer. Error buffers may be null: the
   error is dropped then. */
#include <stddef.h>
#include <stdint.h>
#include <time.h>
#ifdef __cplusplus
extern "C" {
#endif
/* A user that must also load where no platform is present defines QEL_OPTIONAL: every service becomes a
   weak reference whose address may be null. The platform itself never defines it. */
#ifdef QEL_OPTIONAL
#define QEL_API __attribute__((weak))
#else
#define QEL_API __attribute__((visibility("default")))
#endif

/* Error buffer: all zero = no error; errnum != 0 = the call failed. Users start every call with a zeroed one. */
typedef struct qel_errbuf {
    uint32_t location;   /* where the error was raised */
    uint32_t err_class;  /* kind of error */
    uint32_t errnum;     /* 0 = none */
    uint32_t field;      /* field number concerned, or 0 */
    int32_t  elem_id;    /* element concerned, or 0 */
    uint32_t reserved[3];
} qel_errbuf_t;          /* 32 bytes */
enum { QEL_LOC_NONE = 0, QEL_LOC_FLIST = 1, QEL_LOC_CONF = 2, QEL_LOC_NUMBER = 3, QEL_LOC_APPL = 10 };
enum { QEL_CLASS_NONE = 0, QEL_CLASS_SYSTEM = 1, QEL_CLASS_APPL = 2 };
enum { QEL_ERR_NONE = 0, QEL_ERR_NO_MEM = 1, QEL_ERR_NOT_FOUND = 2, QEL_ERR_BAD_TYPE = 3, QEL_ERR_BAD_ARG = 4,
       QEL_ERR_TOO_SMALL = 5, QEL_ERR_BAD_VALUE = 6 };   /* 37 and 120 are left to the application */

/* Field number = type in bits 24-31, number in bits 0-23. */
#define QEL_FLD(type, num)  ((type) * 0x1000000u | ((num) & 0xFFFFFFu))
#define QEL_FLD_TYPE(fld)   (((fld) | 0u) >> 24)
#define QEL_FLD_NUM(fld)    ((fld) & 0xFFFFFFu)
enum {
    QEL_TYPE_INT = 1,       /* int32_t *        (also the configuration type for integers) */
    QEL_TYPE_STR = 5,       /* char *           (also the configuration type for texts)    */
    QEL_TYPE_XOID = 7,      /* qel_xoid_t *     */
    QEL_TYPE_TSTAMP = 8,    /* int64_t *, seconds since the epoch */
    QEL_TYPE_ARRAY = 9,     /* qel_flist_t * per element id */
    QEL_TYPE_SUBLIST = 10,  /* qel_flist_t *    */
    QEL_TYPE_DECIMAL = 14   /* nmu_decimal_t *  */
};
#define QEL_ELEM_ANY (-1)   /* qeli_flist_get: the first element present */

typedef struct qel_flist   qel_flist_t;
typedef struct qel_xoid    qel_xoid_t;
typedef struct nmu_decimal nmu_decimal_t;

/* Configuration: *err 0 and *value set (malloc'ed int32_t or text, release with qel_free), else *err a QEL_ERR_
   number and *value null. The first file of "./qel.conf", "/etc/qel.conf" and "$QEL_HOME/config/qel.conf" is read,
   at each call; directories of that name do not count. It looks like this:

       # a comment takes a whole line
       [ostrum]
       ostrum_logdir = /var/log/trace
       ostrum_var_time = 0x3

       [opcodes]
       100 = op_reindex

   A section holds the entries of one program. Blanks around a key and a value do not count; a value goes to the
   end of its line, and may stand in double quotes, which keep its blanks. Of a key given twice the first counts.
   Integers are decimal, 0x hexadecimal or 0 octal; one that does not fit 32 bits, or another text, is
   QEL_ERR_BAD_VALUE. */
QEL_API void qel_conf(const char *program, const char *key, int32_t type, void **value, int32_t *err);
QEL_API void qel_free(void *p);

/* Field lists. get returns a borrowed pointer, valid until that element is replaced or the list destroyed, and null
   for a missing element, which is an error unless optional is not 0; set stores a copy; put takes ownership (also
   when it fails) of a malloc'ed number or text, of an identifier, a decimal or a list. Element ids count for array
   fields only; QEL_ELEM_ANY cannot be stored under. elem_add returns the element, borrowed and empty, or the one
   that is there already under that id. elem_count is 0 for a field that is not there. */
QEL_API qel_flist_t *qel_flist_create(qel_errbuf_t *eb);
QEL_API void         qel_flist_destroy(qel_flist_t *fl, qel_errbuf_t *eb);                /* null: nothing */
QEL_API qel_flist_t *qel_flist_copy(const qel_flist_t *fl, qel_errbuf_t *eb);             /* deep */
QEL_API void        *qeli_flist_get(qel_flist_t *fl, uint32_t fld, int32_t elem_id, int32_t optional, qel_errbuf_t *eb);
QEL_API void         qeli_flist_set(qel_flist_t *fl, uint32_t fld, int32_t elem_id, const void *value, qel_errbuf_t *eb);
QEL_API void         qeli_flist_put(qel_flist_t *fl, uint32_t fld, int32_t elem_id, void *value, qel_errbuf_t *eb);
QEL_API int32_t      qel_flist_elem_count(qel_flist_t *fl, uint32_t fld, qel_errbuf_t *eb);
QEL_API qel_flist_t *qel_flist_elem_add(qel_flist_t *fl, uint32_t fld, int32_t elem_id, qel_errbuf_t *eb);
/* *text null: text is malloc'ed (qel_free) and *len set. *text set: it is filled, *len is its capacity for characters
   without the terminator; too small gives QEL_ERR_TOO_SMALL and leaves it alone. *len becomes the text's length in
   each case. A line a field, ordered by field and element id, sub-lists indented; what a sensitive field holds is
   shown as ****. */
QEL_API void qel_flist_to_str_masked(qel_flist_t *fl, char **text, int32_t *len, qel_errbuf_t *eb);
/* Same text contract; *status 0 = rendered. One line, no line end. flags: 0. */
QEL_API void qel_errbuf_sprint(qel_errbuf_t *eb, char **text, int32_t *len, int32_t flags, int32_t *status);
/* Writes the masked text to standard error, behind a line with file, line and prefix. level: 1 = error. */
QEL_API void qel_log_flist(qel_flist_t *fl, int32_t level, const char *prefix, const char *file, int32_t line);

/* Object identifiers: number of the database, id in it, type of the object. */
QEL_API int64_t     qel_xoid_get_db(const qel_xoid_t *x);
QEL_API int64_t     qel_xoid_get_id(const qel_xoid_t *x);
QEL_API const char *qel_xoid_get_type(const qel_xoid_t *x);                               /* borrowed */

/* Correlation identifier of the calling thread, borrowed until the thread sets another one; may be null.
   "host:pid:program:thread" by default; at least three ':', with the program's name between the second and third. */
QEL_API const char *qellog_get_correlation(void);
/* Names of operations: those of section "opcodes" of qel.conf (number = name), then the built-in ones. */
QEL_API const char *tbx_opcode_to_opname(int32_t opcode);  /* "unknown..." when not known, never null */
QEL_API int32_t     tbx_opname_to_opcode(const char *name);/* 0 when not known ("*" and "" are not known) */

/* Decimals. from_double takes the shortest digits that give the double again; null with QEL_ERR_BAD_VALUE for an
   infinite or undefined one. round_assign leaves at most so many decimal places (0 or more). */
QEL_API nmu_decimal_t *nmu_decimal_from_double(double v, qel_errbuf_t *eb);
QEL_API void nmu_decimal_round_assign(nmu_decimal_t *d, int32_t places, int32_t mode, qel_errbuf_t *eb);
enum { NMU_ROUND_UP = 1 /* away from zero */, NMU_ROUND_DOWN = 2 /* towards zero */, NMU_ROUND_CEILING = 3, NMU_ROUND_FLOOR = 4,
       NMU_ROUND_NEAREST = 5 /* ties away from zero */, NMU_ROUND_EVEN = 6 };

QEL_API time_t qel_virtual_time(time_t *out);            /* like time(); null allowed */
QEL_API int    qel_snprintf(char *buf, size_t size, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
QEL_API size_t qel_strlcpy(char *dst, const char *src, size_t size);   /* returns strlen(src) */
QEL_API char  *qel_i64toa(int64_t v, char *buf, size_t size);          /* decimal, returns buf */

/* For hosts, demonstrations and tests; the tracing library uses none of these. */
#ifndef QEL_OPTIONAL
/* Every host calls this once, before its first thread: a strong reference, without which the linker would drop a
   library that is referenced weakly only. Reads the operation names of qel.conf (else they are read at first use);
   a later call reads them again, and names handed out stay valid. 0, or -1 when memory is short. */
QEL_API int            qel_platform_init(void);
QEL_API qel_xoid_t    *qel_xoid_create(int64_t db, const char *type, int64_t id);
QEL_API void           qel_xoid_destroy(qel_xoid_t *x);
QEL_API void           qellog_set_correlation(const char *text);       /* cut to 511; null: back to the default */
QEL_API void           qel_mask_fields(const uint32_t *fields, size_t n); /* these are sensitive, and no others */
QEL_API void           nmu_decimal_destroy(nmu_decimal_t *d);
QEL_API double         nmu_decimal_to_double(const nmu_decimal_t *d);
QEL_API char          *nmu_decimal_to_str(const nmu_decimal_t *d);      /* qel_free */
QEL_API void           qel_flist_print(const qel_flist_t *fl);          /* standard output, masked */
#endif
#ifdef __cplusplus
}
#endif
#endif
