// Which lens drive runs in which 256-frame block: from a drive file (one
// line "zoom af wind" per block) or from time ranges given in seconds.
//
// A block is driven by a range when its first frame lies inside the range:
// block b (frames 256b .. 256b+255) is driven by start-end when
// start <= 256b / rate < end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "drive_words.h"

namespace vorl {

struct TimeRange {
    double start, end;  // seconds, start < end
};

class DriveSchedule {
public:
    // Parses a drive file: one line per block, three integers "zoom af wind"
    // (zoom 0..2, af any non-negative 32-bit value, wind 0 or 1), separated
    // by spaces, tabs, commas or semicolons. Empty lines, notes after '#'
    // and a first line naming the columns are skipped. Input error naming
    // file:line.
    static DriveSchedule from_file(const std::string &path);

    // A schedule of the given per-block words, treated like a drive file
    // (named `name` in mismatches()).
    static DriveSchedule from_words(std::vector<DriveWords> words, std::string name = "");

    // Adds ranges from a command-line value "1.5-3.2" or "1.5-3.2,5-6.5";
    // usage error naming `option` if malformed. Overlapping zoom-in and
    // zoom-out ranges are refused by check_conflicts().
    void add_zoom_in(const std::string &value, const std::string &option);
    void add_zoom_out(const std::string &value, const std::string &option);
    void add_af(const std::string &value, const std::string &option);
    void add_wind(const std::string &value, const std::string &option);
    void check_conflicts() const;

    // The drive words of block `block` for a recording at `rate` Hz; blocks
    // past the end of a drive file are idle.
    DriveWords at(int64_t block, double rate) const;

    // The same for a recording at `rate` Hz that is processed at
    // `engine_rate` (resampled to it): a drive file counts the engine's
    // blocks, so block `block` takes the line of the engine block that holds
    // its first frame. Ranges are times and need no such care.
    DriveWords at_engine_rate(int64_t block, int rate, int engine_rate) const;

    // What does not fit a recording of `frames` frames at `rate` Hz called
    // `audio`: a drive file with another number of blocks, ranges that
    // reach past its end. One message per problem, none when all fits.
    // `recorded_rate`, when another than `rate`, is the recording's own
    // rate: its frames were counted at `rate`, which the message says.
    std::vector<std::string> mismatches(int64_t frames, int rate, const std::string &audio, int recorded_rate = 0) const;

    bool uses_file() const { return file_given_; }
    // Whether any block has its autofocus word set.
    bool has_af() const;
    std::size_t file_blocks() const { return by_block_.size(); }
    // Whether a drive file's line count lies within `slack` of `blocks`.
    bool file_within(int64_t blocks, int64_t slack) const;

private:
    std::vector<DriveWords> by_block_;
    bool file_given_ = false;
    std::string file_;
    std::vector<TimeRange> zoom_in_, zoom_out_, af_, wind_;
};

// The rate tables are tuned for; "vorl process" and "vorl table fit"
// resample recordings at other rates to it (unless --no-resample).
constexpr int kTunedRate = 48000;

// How far a coded recording's length (a video's AAC) may stray from its
// drive log's, in blocks: two AAC frames of 1024 (the encoder's padding, a
// container cut).
constexpr int64_t kCodedLengthSlack = 8;

// The length of `frames` frames at `rate` Hz in frames at `to_rate`, as
// resampling gives it.
int64_t frames_at_rate(int64_t frames, int rate, int to_rate);

// Writes a drive file, one "zoom af wind" line per block after a comment
// line, atomically (input error naming the file on failure).
void write_drive_file(const std::string &path, const std::vector<DriveWords> &words);

// Parses "a-b[,c-d...]" into ranges; usage error naming `option`.
std::vector<TimeRange> parse_ranges(const std::string &value, const std::string &option);

}  // namespace vorl
