/* Read-only access to an SQLite file's b-trees through SQLite's own pager,
 * locks and write-ahead log, with no SQL compiled: a short reader's open then
 * neither parses the schema nor compiles a statement. Compiled into the same
 * unit as SQLite (btree_read.c), whose internal b-tree calls these wrap.
 *
 * Every call returns an SQLite result code. A cursor reads under the read
 * transaction btr_begin_read holds on the connection's main file. */
#ifndef EVPN_BTREE_READ_H
#define EVPN_BTREE_READ_H

#include <stdint.h>

#include "sqlite3.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fields of the file's header (btr_meta). */
enum { BTR_META_TEXT_ENCODING = 5, BTR_META_USER_VERSION = 6, BTR_META_APPLICATION_ID = 8 };

/* A key field to seek to: SQLITE_INTEGER (i), SQLITE_TEXT or SQLITE_BLOB (p, n). */
typedef struct btr_value {
    int type;
    int64_t i;
    const void *p;
    int n;
} btr_value;

enum { BTR_MAX_KEY_FIELDS = 4 };

typedef struct btr_cursor btr_cursor;

/* Begins a read transaction on db's main file unless one is open. It lasts
 * until btr_end_read or the connection's close; a statement run meanwhile
 * reads in it and does not end it. The first call reads the file: a hot
 * journal (SQLITE_READONLY_ROLLBACK), a log to recover
 * (SQLITE_READONLY_RECOVERY), a file that is no database (SQLITE_NOTADB)
 * and a lock held too long (SQLITE_BUSY) show here. */
int btr_begin_read(sqlite3 *db);
/* Ends the read transaction; every cursor must be closed first. */
int btr_end_read(sqlite3 *db);
/* Header field idx (BTR_META_*) as the transaction reads the file. */
int btr_meta(sqlite3 *db, int idx, uint32_t *value);

/* A cursor on the b-tree rooted at page root: an index (of an index or of a
 * table without rowid) whose first key_fields fields are compared, in
 * ascending binary order, when key_fields > 0; a table keyed by rowid when
 * key_fields is 0. A root whose page is of the other kind reads as
 * SQLITE_CORRUPT. */
int btr_open(sqlite3 *db, uint32_t root, int key_fields, btr_cursor **out);
void btr_close(btr_cursor *c);

/* Moves an index cursor to its first entry whose leading n fields (n at most
 * the cursor's key fields) are at or past key's; *at_end when none is. */
int btr_seek_ge(btr_cursor *c, const btr_value *key, int n, int *at_end);
/* Moves a table cursor to the row with this rowid; *found is 0 when there is none. */
int btr_seek_rowid(btr_cursor *c, int64_t rowid, int *found);
/* Moves to the first entry; *at_end for an empty b-tree. */
int btr_first(btr_cursor *c, int *at_end);
/* Moves to the next entry; *at_end past the last. */
int btr_next(btr_cursor *c, int *at_end);

/* Of the entry a cursor is on (one a seek or move left it on, not at_end): */
/* its rowid (a table cursor); */
int64_t btr_rowid(btr_cursor *c);
/* the size of its record; */
uint32_t btr_record_size(btr_cursor *c);
/* the part of its record on the entry's page: *n bytes, valid until the cursor moves; */
const void *btr_record_local(btr_cursor *c, uint32_t *n);
/* bytes [offset, offset + n) of its record, read across its overflow pages. */
int btr_record_read(btr_cursor *c, uint32_t offset, uint32_t n, void *out);

#ifdef __cplusplus
}
#endif
#endif
