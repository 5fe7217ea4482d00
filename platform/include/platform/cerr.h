// Platform error codes and their texts.
#pragma once
#include <cstdint>

// Every platform call returns 0 or one of these 32-bit codes.
enum : uint32_t {
    CERR_OK = 0,
    SYSDB_ERR_NOT_FOUND = 0x40818600u,     // no such item or listing
    SYSDB_ERR_NO_INDEX_MATCH = 0x40818a00u, // index name or key text not understood
    SYSDB_ERR_BAD_PATH = 0x40812a00u,      // path malformed, too long or outside the root
    SYSDB_ERR_NO_LIBRARY = 0x8081C200u,    // database file not readable
    SYSDB_ERR_NOT_BOUND = 0x80818400u,     // handle not bound, or database not ours
    SYSDB_ERR_STORE = 0x80818800u,         // the store failed to answer (I/O, corruption, busy)
    SYSDB_ERR_BAD_ARG = 0x80818c00u,       // a required argument is absent
    SYSDB_ERR_CORRUPT = 0x80818e00u,       // the database file is damaged
    SYSDB_ERR_HOT_JOURNAL = 0x80819000u,   // a writer left an unfinished change to roll back
    SYSDB_ERR_TOO_BIG = 0x80819200u,       // a stored row past the read memory limit
    BAG_ERR_TRUNCATED = 0x40a10100u,       // encoded data ends before the record does
    BAG_ERR_COUNT = 0x40a10200u,           // array count larger than the data can hold
    BAG_ERR_DEPTH = 0x40a10300u,           // records nested too deep
    BAG_ERR_BUFFER = 0x40a10400u,          // decode buffer smaller than the record
    BAG_ERR_TRAILING = 0x40a10500u,        // bytes left over after the record
    BAG_ERR_VALUE = 0x40a10600u,           // a value out of range for its field
    BAG_ERR_NOMEM = 0x40a10700u,           // inner allocation failed or over the cap
    BAG_ERR_ARG = 0x40a10800u,             // absent data, buffer or description
    BAG_ERR_NOT_DECODED = 0x40a10900u,     // release of a buffer the codec never filled
    BAG_ERR_TEXT = 0x40a10a00u,            // text with a control character, a NUL or bytes not UTF-8
    BAG_ERR_TOO_BIG = 0x40a10b00u,         // record over the codec's size limits
    L2FIB_ERR_NOT_STARTED = 0x40b10100u,   // statistics client not running
    L2FIB_ERR_START = 0x40b10200u,         // statistics client could not start
    L2FIB_ERR_NO_BD = 0x40b10300u,         // no counters for that bridge domain
    L2FIB_ERR_ARG = 0x40b10400u,           // bad argument
};

// Text of a code; never null. Unknown codes give "Unknown error 0x%08x".
const char *cerr_strerror(uint32_t code);
