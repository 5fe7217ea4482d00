// Snapshot loader against arbitrary JSON text, into a scratch database of
// this process. A load that succeeds must dump and load back again. The
// tokenizer must read the text the same whatever its buffer size.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "json_reader.h"
#include "snapshot.h"

namespace {

// Plain buffers: the exit handler that removes the files runs after static
// objects are destroyed.
char g_db[96], g_temp[128];

void remove_db() {
    unlink(g_db);
    // A loader that failed half-way must not leave its temp file behind.
    unlink(g_temp);
}

// Every token of text (kind, then text), then the error if it is refused.
std::string token_trace(const std::string &text, size_t buffer) {
    std::istringstream in(text);
    std::string out;
    try {
        evpn::JsonReader r(in, buffer);
        for (;;) {
            const evpn::JsonToken &t = r.next();
            out += static_cast<char>('A' + static_cast<int>(t.kind));
            out += t.text;
            out += '\0';
            if (t.kind == evpn::JsonTok::End) return out;
        }
    } catch (const evpn::JsonSyntaxError &e) {
        return out + e.what();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    snprintf(g_db, sizeof g_db, "/tmp/evpn_fuzz_snapshot.%d.db", static_cast<int>(getpid()));
    snprintf(g_temp, sizeof g_temp, "%s.load-%d", g_db, static_cast<int>(getpid()));
    atexit(remove_db);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    remove_db();
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (token_trace(text, evpn::JsonReader::kDefaultBufferSize) != token_trace(text, 1 + size % 7)) abort();
    std::istringstream in(text);
    evpn::LoadStats stats;
    std::string err;
    if (!evpn::load_snapshot(in, g_db, stats, err)) {
        if (access(g_db, F_OK) == 0) abort();  // a failed load leaves nothing
        return 0;
    }
    // What loaded dumps to a snapshot that loads to a database dumping the same.
    std::ostringstream first;
    if (!evpn::dump_snapshot(g_db, first, err)) abort();
    remove_db();
    std::istringstream again(first.str());
    evpn::LoadStats stats2;
    if (!evpn::load_snapshot(again, g_db, stats2, err)) {
        fprintf(stderr, "dump does not load back: %s\n", err.c_str());
        abort();
    }
    std::ostringstream second;
    if (!evpn::dump_snapshot(g_db, second, err) || second.str() != first.str()) abort();
    return 0;
}
