// Stereo 16-bit audio through a HostSession, block by block, many blocks
// at a time: the optional DC cut, each block's drive words, and the
// library's delay. By default the output is time-aligned with the input
// and as long (three blocks of silence are fed after the end and the first
// 768 output frames dropped); `raw` passes the library's stream as it
// comes, whole blocks, 768 frames late.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "drive_schedule.h"
#include "host_session.h"
#include "input_check.h"
#include "removal_mix.h"

namespace vorl {

class EngineStream {
public:
    using Sink = std::function<void(const int16_t *interleaved, std::size_t frames)>;

    // `rate` is the rate the library runs at (for the drive ranges).
    EngineStream(HostSession &session, const DriveSchedule &drive, int rate, bool dc_cut, bool raw, Sink sink);

    // Before the first push: the sink gets in + strength × (output − in)
    // instead of the library's output, and `removed` (if set) gets what
    // that took away, in − sink's frames, time-aligned alike (in: the
    // frames pushed, before the DC cut).
    void mix(double strength, Sink removed);

    // Called after the library processed each block, with its index (for
    // looking into the session's workspace, e.g. the gains).
    void after_each_block(std::function<void(int64_t block)> hook) { after_block_ = std::move(hook); }

    // Before the first push: prime the session with the recording's first
    // blocks (HostSession::prime) once they have arrived.
    void prime_at_start() { prime_ = true; }

    void push(const int16_t *interleaved, std::size_t frames);  // any amount
    void finish();  // the input has ended

    int64_t frames() const { return frames_; }   // input frames taken
    int64_t blocks() const { return blocks_; }   // blocks the library processed
    // Output samples at full scale where the input was not: the library's
    // saturation.
    uint64_t saturated() const { return saturated_; }
    // What the library was given (after the DC cut), watched for an offset
    // and an inverted channel.
    const InputCheck &input_check() const { return input_check_; }

private:
    void run_chunk(bool at_end);
    void prime_session(const int16_t *chunk_in);

    HostSession &session_;
    const DriveSchedule &drive_;
    int rate_;
    bool dc_cut_, raw_, prime_ = false;
    Sink sink_, removed_sink_;
    std::function<void(int64_t)> after_block_;
    std::unique_ptr<RemovalMix> mix_;
    VORLDcCutState dc_{};
    // What the library was given, VORL_DELAY_FRAMES behind the current
    // chunk: output frame k of a chunk comes from seen_ frame k.
    std::vector<int16_t> seen_, out_, removed_;
    std::size_t filled_ = 0;  // frames of the current chunk
    int64_t frames_ = 0, blocks_ = 0, produced_ = 0;
    uint64_t saturated_ = 0;
    InputCheck input_check_;
};

}  // namespace vorl
