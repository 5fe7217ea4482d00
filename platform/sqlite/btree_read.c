/* Read-only b-tree cursors (platform/btree_read.h), compiled in one unit
 * after SQLite's single-file source, unchanged (sqlite3_btree_read.c, which
 * the build writes), whose internal b-tree calls they wrap. They are written
 * against the version the build fetches. */
#include "../include/platform/btree_read.h"

struct btr_cursor {
    sqlite3 *db;
    KeyInfo *key_info; /* null for a rowid table */
    BtCursor *cur;     /* sqlite3BtreeCursorSize() bytes after this struct */
};

static Btree *main_btree(sqlite3 *db) { return db && db->nDb > 0 ? db->aDb[0].pBt : 0; }

int btr_begin_read(sqlite3 *db) {
    Btree *b = main_btree(db);
    int rc;
    if (!b) return SQLITE_MISUSE;
    rc = sqlite3BtreeBeginTrans(b, 0, 0);
    /* As BEGIN does: a statement that ends does not commit the transaction. */
    if (rc == SQLITE_OK) db->autoCommit = 0;
    return rc;
}

int btr_end_read(sqlite3 *db) {
    Btree *b = main_btree(db);
    if (!b) return SQLITE_MISUSE;
    db->autoCommit = 1;
    return sqlite3BtreeCommit(b);
}

int btr_meta(sqlite3 *db, int idx, uint32_t *value) {
    Btree *b = main_btree(db);
    u32 v = 0;
    if (!b || !value) return SQLITE_MISUSE;
    if (sqlite3BtreeTxnState(b) == SQLITE_TXN_NONE) return SQLITE_MISUSE;
    sqlite3BtreeGetMeta(b, idx, &v);
    *value = v;
    return SQLITE_OK;
}

int btr_open(sqlite3 *db, uint32_t root, int key_fields, btr_cursor **out) {
    Btree *b = main_btree(db);
    btr_cursor *c;
    int rc;
    *out = 0;
    if (!b || key_fields < 0 || key_fields > BTR_MAX_KEY_FIELDS || root < 1) return SQLITE_MISUSE;
    if (sqlite3BtreeTxnState(b) == SQLITE_TXN_NONE) return SQLITE_MISUSE;
    c = (btr_cursor *)sqlite3_malloc64(ROUND8(sizeof *c) + (sqlite3_uint64)sqlite3BtreeCursorSize());
    if (!c) return SQLITE_NOMEM;
    c->db = db;
    c->key_info = 0;
    c->cur = (BtCursor *)((char *)c + ROUND8(sizeof *c));
    if (key_fields > 0) {
        /* Binary order, ascending: aColl and aSortFlags come zeroed. The one
         * extra field is the rowid of an index of a rowid table. */
        c->key_info = sqlite3KeyInfoAlloc(db, key_fields, 1);
        if (!c->key_info) {
            sqlite3_free(c);
            return SQLITE_NOMEM;
        }
    }
    sqlite3BtreeCursorZero(c->cur);
    rc = sqlite3BtreeCursor(b, (Pgno)root, 0, c->key_info, c->cur);
    if (rc != SQLITE_OK) {
        if (c->key_info) sqlite3KeyInfoUnref(c->key_info);
        sqlite3_free(c);
        return rc;
    }
    *out = c;
    return SQLITE_OK;
}

void btr_close(btr_cursor *c) {
    if (!c) return;
    sqlite3BtreeCloseCursor(c->cur);
    if (c->key_info) sqlite3KeyInfoUnref(c->key_info);
    sqlite3_free(c);
}

/* After a move that left the cursor before the wanted entry (res < 0) or on
 * it: on it, or at_end. */
static int settle(btr_cursor *c, int res, int *at_end) {
    int rc = SQLITE_OK;
    if (res < 0) {
        rc = sqlite3BtreeNext(c->cur, 0);
        if (rc == SQLITE_DONE) {
            *at_end = 1;
            return SQLITE_OK;
        }
    }
    *at_end = sqlite3BtreeEof(c->cur);
    return rc;
}

int btr_seek_ge(btr_cursor *c, const btr_value *key, int n, int *at_end) {
    UnpackedRecord r;
    Mem mem[BTR_MAX_KEY_FIELDS];
    int res = 0, rc, i;
    *at_end = 1;
    if (!c->key_info || n < 1 || n > c->key_info->nKeyField) return SQLITE_MISUSE;
    memset(&r, 0, sizeof r);
    for (i = 0; i < n; i++) {
        sqlite3VdbeMemInit(&mem[i], c->db, MEM_Null);
        switch (key[i].type) {
        case SQLITE_INTEGER:
            mem[i].flags = MEM_Int;
            mem[i].u.i = key[i].i;
            break;
        case SQLITE_TEXT:
        case SQLITE_BLOB:
            if (key[i].n < 0 || (key[i].n > 0 && !key[i].p)) return SQLITE_MISUSE;
            mem[i].flags = key[i].type == SQLITE_TEXT ? MEM_Str : MEM_Blob;
            mem[i].enc = SQLITE_UTF8;
            mem[i].z = (char *)(key[i].n ? key[i].p : "");
            mem[i].n = key[i].n;
            break;
        default:
            return SQLITE_MISUSE;
        }
    }
    r.pKeyInfo = c->key_info;
    r.aMem = mem;
    r.nField = (u16)n;
    /* An entry whose leading fields equal the key counts as past it: the
     * seek stops before the first such entry. */
    r.default_rc = 1;
    rc = sqlite3BtreeIndexMoveto(c->cur, &r, &res);
    if (rc == SQLITE_OK && r.errCode) rc = SQLITE_CORRUPT_BKPT;
    if (rc != SQLITE_OK) return rc;
    return settle(c, res, at_end);
}

int btr_seek_rowid(btr_cursor *c, int64_t rowid, int *found) {
    int res = 0, rc;
    *found = 0;
    if (c->key_info) return SQLITE_MISUSE;
    rc = sqlite3BtreeTableMoveto(c->cur, rowid, 0, &res);
    if (rc != SQLITE_OK) return rc;
    *found = res == 0 && !sqlite3BtreeEof(c->cur);
    return SQLITE_OK;
}

int btr_first(btr_cursor *c, int *at_end) {
    int empty = 1, rc = sqlite3BtreeFirst(c->cur, &empty);
    *at_end = rc != SQLITE_OK || empty;
    return rc;
}

int btr_next(btr_cursor *c, int *at_end) {
    int rc = sqlite3BtreeNext(c->cur, 0);
    *at_end = 1;
    if (rc == SQLITE_DONE) return SQLITE_OK;
    if (rc == SQLITE_OK) *at_end = 0;
    return rc;
}

int64_t btr_rowid(btr_cursor *c) { return sqlite3BtreeIntegerKey(c->cur); }

uint32_t btr_record_size(btr_cursor *c) { return sqlite3BtreePayloadSize(c->cur); }

const void *btr_record_local(btr_cursor *c, uint32_t *n) { return sqlite3BtreePayloadFetch(c->cur, n); }

int btr_record_read(btr_cursor *c, uint32_t offset, uint32_t n, void *out) {
    return sqlite3BtreePayload(c->cur, offset, n, out);
}
