// Progress of a long load, generation or dump on standard error: records
// done, records a second and, where the whole is known, the time left.
#pragma once
#include <cstdint>

namespace evpn {

// auto: on a terminal, once the job has run a second; always: from the
// first few thousand records, wherever the output goes (a line a second when
// it is not a terminal); never. EVPN_SYSDB_PROGRESS names one; anything else
// is auto.
enum class ProgressMode { Auto, Always, Never };
ProgressMode progress_mode_from_env();

class Progress {
  public:
    using Clock = uint64_t (*)();  // monotonic nanoseconds

    // verb names the job on the line ("loading"). fd is where the line goes.
    explicit Progress(const char *verb, ProgressMode mode = progress_mode_from_env(), int fd = 2,
                      Clock now = nullptr);
    ~Progress() { finish(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    bool on() const { return on_; }
    // What the position given to update() counts up to; 0 when not known.
    void set_total(uint64_t total) { total_ = total; }
    // done records so far; pos how far the job is towards the total (records,
    // or bytes of input). Cheap: the clock is read every few thousand records.
    void update(uint64_t done, uint64_t pos) {
        if (on_ && done >= next_) tick(done, pos);
    }
    static constexpr uint64_t kCheckEvery = 4096;  // records between two looks at the clock
    // Takes the line off a terminal (ends it elsewhere); no more updates.
    void finish();

  private:
    void tick(uint64_t done, uint64_t pos);
    bool put(const char *text, int len);

    const char *verb_;
    int fd_;
    Clock now_;
    bool on_, tty_, drawn_ = false;
    uint64_t total_ = 0, next_, start_ns_, show_from_ns_, last_draw_ns_ = 0;
};

}  // namespace evpn
