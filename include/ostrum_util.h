#ifndef OSTRUM_UTIL_H
#define OSTRUM_UTIL_H
/* Ostrum: time values, text helpers and the ordered tree, for hosts and monitoring tools. The other two
 * headers include this one.
 *
 * A time value is a signed 64-bit count of nanoseconds: an absolute time counts from the Unix epoch on
 * the real-time clock, a duration is the difference of two. No call here throws or ends the process;
 * a null text is the empty text. */
#include <stddef.h>
#include <stdint.h>

#define OSTRUM_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Time values ----------------------------------------------------------------------------- */

/* The real-time clock now, in nanoseconds since the epoch. Any thread. */
OSTRUM_API uint64_t linux_gethrtime(void);
/* The same as a time value. */
OSTRUM_API int64_t ostrum_now_tv(void);

/* A time value as seconds: tv / 1e9. */
OSTRUM_API double ostrum_tv_to_double(int64_t tv);

/* A time value as a decimal of the host platform, in seconds and not rounded (the host's
 * nmu_decimal_round_assign does that). Returns the caller's nmu_decimal_t; null where no platform is
 * loaded or it could not make one. */
OSTRUM_API void *ostrum_tv_to_decimal(int64_t tv);

/* Reads "seconds" or "seconds.fraction" (base 10; leading blanks and a sign as strtoll takes them; up to
 * nine digits of fraction after its leading zeros; finer than a nanosecond is cut off).
 * Returns nanoseconds; 0 for a null or empty text; -1, after one diagnostic line, for anything else.
 * Any thread. */
OSTRUM_API int64_t ostrum_string_to_tv(const char *text);

/* Writes a time value as text.
 * tv    nanoseconds; any negative value stands for now, so negative durations cannot be printed
 * buf   receives the text; null: a static buffer of 64 bytes, which threads must not share
 * len   its length in bytes, not below 11 (see below); longer texts are cut
 * code  bits 0-3: digits of the fraction, 0 to 9
 *       bits 4-7: form: 0x00 seconds; local date and time: 0x10 day first, 0x20 year first,
 *                 0x30 and 0x40 the same without separators; 0x50 tv is no time but a count,
 *                 shown with that many of its digits (0 to 15) behind the point
 *       0x100:    commas between thousands of the integer part (forms 0x00 and 0x50)
 *       Examples: 3 12.345; 9 1763212641.123456789; 22 15/11/2026 13:17:21.123456;
 *                 38 2026/11/15 13:17:21.123456; 0x109 1,234.500000000
 * Seconds wrap at 2^31, and form 0x50 takes the fraction modulo the integer part: 1234567 with 3 digits
 * gives 1234.567, 1500 gives 1.000 (both kept: readers of existing files rely on them).
 * Returns the buffer. Every error puts "bad format" into it, 11 bytes whatever the length. Any thread,
 * but for the static buffer. */
OSTRUM_API char *ostrum_fmt_tv(int64_t tv, char *buf, int32_t len, uint32_t code);

/* Writes part * 100 / whole with so many digits behind the point, as in 33.33; 0 when whole is 0.
 * buf   receives the text, len bytes at most
 * Returns the buffer. Any thread. */
OSTRUM_API char *ostrum_fmt_pct_tv(int64_t part, int64_t whole, char *buf, int32_t len, int32_t digits);

/* Writes a number with commas between its thousands: 1234567 gives 1,234,567.
 * buf   receives the text; must have 27 bytes, which hold any number
 * len   its length in bytes; each group of digits is cut to it, not the whole text (kept: callers pass
 *       buffers that are large enough); 0 or below: nothing is written
 * Returns the number of characters written. Any thread. */
OSTRUM_API uint32_t ostrum_fmt_int_with_commas(int64_t value, char *buf, int32_t len);

/* ---- Bytes as text --------------------------------------------------------------------------- */

/* Code bytes as text and back. Input is `len` bytes or characters; *out_len receives the size of the
 * result. Results are not NUL-terminated and belong to the caller, who gives them to free(); they are
 * null when memory is short. Any thread.
 *
 * base16: two lower-case hexadecimal digits a byte. Decoding an odd length gives null (*out_len stays);
 *         any other character than 0-9 and a-f, also A-F, repeats the value of the one before it, 0 at the
 *         start (kept on purpose).
 * base64: RFC 4648 with "=" padding. Decoding a length that is not a multiple of 4 gives null; characters
 *         outside the alphabet count as 0. */
OSTRUM_API char *base16_encode(const void *bytes, size_t len, size_t *out_len);
OSTRUM_API void *base16_decode(const char *text, size_t len, size_t *out_len);
OSTRUM_API char *base64_encode(const void *bytes, size_t len, size_t *out_len);
OSTRUM_API void *base64_decode(const char *text, size_t len, size_t *out_len);

/* ---- String builder -------------------------------------------------------------------------- */

/* A growing text. One thread at a time uses a builder. */
typedef struct string_builder string_builder;

/* Makes an empty builder that grows in multiples of `step` bytes; below 1: 4096. The caller destroys it.
 * Null when memory is short. */
OSTRUM_API string_builder *string_builder_create(int32_t step);

/* Append a text; a formatted text, cut at 2,047 characters; raw bytes. The content stays NUL-terminated.
 * Return 0; -1 for a null builder and for what would make the content larger than INT32_MAX, which leaves
 * the builder as it was; -1 also when memory is short: the content is lost then and the builder is empty,
 * but may be used again. What is added must not be the builder's own content. */
OSTRUM_API int32_t string_builder_add_str(string_builder *builder, const char *text);
OSTRUM_API int32_t string_builder_add_strfmt(string_builder *builder, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
OSTRUM_API int32_t string_builder_add_data(string_builder *builder, const void *bytes, int32_t count);

/* The content, which stays the builder's and is valid until the next change of it; null for a null
 * builder. */
OSTRUM_API char *string_builder_data(const string_builder *builder);
/* Its length in bytes without the terminator; 0 for a null builder. */
OSTRUM_API int32_t string_builder_used(const string_builder *builder);

/* keep_from 0, or not below the length: empties the builder. Else moves the bytes from keep_from on to
 * the start and leaves the length as it is (kept on purpose). */
OSTRUM_API void string_builder_reset(string_builder *builder, int32_t keep_from);

/* Hands the content over to the caller, who gives it to free(); the builder is left empty. */
OSTRUM_API char *string_builder_take_data(string_builder *builder);

/* Frees the builder and its content; null allowed. */
OSTRUM_API void string_builder_destroy(string_builder *builder);

/* ---- Error texts ----------------------------------------------------------------------------- */

/* Shortens the description of an error: one that begins with "unknown" (any case) becomes the error
 * number, and a prefix that it begins with is left out. At most out_size - 1 characters go into out.
 * Returns the length of the whole result, as snprintf() does. Any thread. */
OSTRUM_API int32_t trim_err_descr(int32_t errnum, const char *descr, const char *prefix, char *out,
                                  int32_t out_size);

/* ---- Ordered tree ---------------------------------------------------------------------------- */

/* An unbalanced binary search tree of records of one size. The tree owns byte copies of the keys that
 * are inserted (pointers inside are copied as they are); it prints no message. One thread at a time uses
 * a tree. No call needs stack by the height of the tree. Callbacks must not change the tree. */
typedef struct bt_tree bt_tree;

/* Results of all calls, and of the update and visit callbacks. */
enum bt_code {
    BT_FAIL = 0,     /* null tree, memory short, refused by the update callback, walk stopped */
    BT_CONTINUE = 1, /* walk done; from callbacks: accepted, go on */
    BT_INSERTED = 2, /* a record was added */
    BT_EXISTED = 3,  /* an equal record was there */
    BT_DELETED = 4,
    BT_NOT_FOUND = 5, /* nothing to delete */
    BT_EMPTIED = 6,
    BT_ERROR = 7 /* null tree given to bt_empty() or bt_destroy() */
};

/* Answers of a filter callback. Any other value means BT_FILTER_SKIP_NODE. */
enum bt_filter_answer {
    BT_FILTER_ALL = 0,        /* left subtree, node, right subtree */
    BT_FILTER_SKIP_NODE = 1,  /* left and right subtree */
    BT_FILTER_RIGHT_ONLY = 2, /* right subtree */
    BT_FILTER_LEFT_ONLY = 3   /* left subtree; the walk goes on above */
};

/* Makes an empty tree.
 * record_size  bytes copied from a key into a new record
 * compare      below 0: key sorts before record, 0: equal, above 0: behind; null: bt_gt
 * release      frees a record and what it owns; null: free(), which a release of one's own ends with
 * Returns the caller's tree, given to bt_destroy() in the end; null when memory is short. */
OSTRUM_API bt_tree *bt_create(int32_t record_size, int32_t (*compare)(const void *key, const void *record),
                              void (*release)(void *record));

/* Finds the record equal to key or adds a copy of key.
 * update  null allowed; called with the record, the key, BT_INSERTED or BT_EXISTED, and out, where it
 *         may leave a pointer for the caller; returns BT_CONTINUE to accept. It merges the key into an
 *         existing record, which the tree itself never changes.
 * out     handed to update and not touched by the tree
 * Returns BT_INSERTED or BT_EXISTED; BT_FAIL for a null tree, when memory is short (the tree is as it
 * was), or when update refused (a new record stays in the tree all the same). */
OSTRUM_API uint32_t bt_insert(bt_tree *tree, const void *key, void **out,
                              int32_t (*update)(void *record, const void *key, uint32_t status, void **out));

/* The record equal to key, which stays the tree's; null when there is none, or no tree. */
OSTRUM_API void *bt_search(bt_tree *tree, const void *key);

/* Releases the record equal to key. Returns BT_DELETED or BT_NOT_FOUND (also for a null tree). */
OSTRUM_API uint32_t bt_delete(bt_tree *tree, const void *key);

/* Releases every record. Returns BT_EMPTIED; BT_ERROR for a null tree. bt_count() keeps the number from
 * before (kept on purpose). */
OSTRUM_API uint32_t bt_empty(bt_tree *tree);

/* The same, and frees the tree. */
OSTRUM_API uint32_t bt_destroy(bt_tree *tree);

/* Visits the records in order.
 * visit   null allowed; called with the record, arg and the depth of its node (root 1); returns
 *         BT_CONTINUE, or anything else to stop the walk
 * filter  null allowed; called once for each node reached, before its left subtree; see bt_filter_answer.
 *         Its answers are kept in the nodes: a callback must not start a filtered walk of the same tree
 * Return BT_CONTINUE when the walk came to its end; BT_FAIL when it was stopped, or for a null tree. */
OSTRUM_API uint32_t bt_walk(bt_tree *tree, void *arg,
                            int32_t (*visit)(void *record, void *arg, int32_t depth));
OSTRUM_API uint32_t bt_walk_filtered(bt_tree *tree, void *arg,
                                     int32_t (*visit)(void *record, void *arg, int32_t depth),
                                     int32_t (*filter)(void *record, void *filter_arg, int32_t depth),
                                     void *filter_arg);

/* Height of the tree, found by a walk: 0 when empty or null, 1 for one record. */
OSTRUM_API int32_t bt_depth(bt_tree *tree);

/* Records inserted and not removed by bt_delete(); 0 for a null tree. */
OSTRUM_API uint32_t bt_count(const bt_tree *tree);

/* Comparisons with a fixed result: 0, 1 and -1. */
OSTRUM_API int32_t bt_eq(const void *key, const void *record);
OSTRUM_API int32_t bt_gt(const void *key, const void *record);
OSTRUM_API int32_t bt_lt(const void *key, const void *record);

#ifdef __cplusplus
}
#endif
#endif
