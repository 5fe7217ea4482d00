// Texts of the platform error codes.
#include "platform/cerr.h"

#include <cstdio>

namespace {
struct CodeText {
    uint32_t code;
    const char *text;
};
constexpr CodeText kTexts[] = {
    {CERR_OK, "Success"},
    {SYSDB_ERR_NOT_FOUND, "No such item or listing in the system database"},
    {SYSDB_ERR_NO_INDEX_MATCH, "Index name or key not understood by the system database"},
    {SYSDB_ERR_BAD_PATH, "Malformed system database path"},
    {SYSDB_ERR_NO_LIBRARY, "System database not available"},
    {SYSDB_ERR_NOT_BOUND, "System database not bound, or not an EVPN operational database"},
    {SYSDB_ERR_STORE, "System database store failed"},
    {SYSDB_ERR_BAD_ARG, "Invalid argument to the system database"},
    {SYSDB_ERR_CORRUPT, "System database file is corrupt"},
    {SYSDB_ERR_HOT_JOURNAL,
     "System database has a hot journal: a writer stopped part-way and its change must be rolled "
     "back by opening the file once with write access"},
    {SYSDB_ERR_TOO_BIG, "System database holds an item too large to read"},
    {BAG_ERR_TRUNCATED, "Encoded record truncated"},
    {BAG_ERR_COUNT, "Encoded array count exceeds the data"},
    {BAG_ERR_DEPTH, "Encoded record nested too deep"},
    {BAG_ERR_BUFFER, "Decode buffer too small for the record"},
    {BAG_ERR_TRAILING, "Unexpected bytes after the encoded record"},
    {BAG_ERR_VALUE, "Encoded value out of range for its field"},
    {BAG_ERR_NOMEM, "Out of memory decoding the record"},
    {BAG_ERR_ARG, "Invalid argument to the record codec"},
    {BAG_ERR_NOT_DECODED, "Buffer holds no decoded record"},
    {BAG_ERR_TEXT, "Encoded text holds a control character or is not UTF-8"},
    {BAG_ERR_TOO_BIG, "Encoded record larger than a record may be"},
    {L2FIB_ERR_NOT_STARTED, "Forwarding statistics client not started"},
    {L2FIB_ERR_START, "Forwarding statistics service unreachable"},
    {L2FIB_ERR_NO_BD, "No forwarding statistics for the bridge domain"},
    {L2FIB_ERR_ARG, "Invalid argument to the forwarding statistics client"},
};
}  // namespace

const char *cerr_strerror(uint32_t code) {
    for (const CodeText &t : kTexts)
        if (t.code == code) return t.text;
    static thread_local char unknown[32];
    snprintf(unknown, sizeof unknown, "Unknown error 0x%08x", code);
    return unknown;
}
