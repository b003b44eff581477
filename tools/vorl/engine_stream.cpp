#include "engine_stream.h"

#include <algorithm>
#include <cstring>

namespace vorl {

namespace {
constexpr std::size_t kBlock = VORL_BLOCK_FRAMES;
constexpr std::size_t kDelay = VORL_DELAY_FRAMES;  // three blocks
constexpr std::size_t kChunk = 64 * kBlock;

// Samples of `out` at full scale where `in` was not. Output at full scale is
// rare, so a pass of minimum and maximum (two vector operations per lane)
// decides whether the exact count is needed.
uint64_t count_saturated(const int16_t *out, const int16_t *in, int64_t samples) {
    int16_t lo = 0, hi = 0;
    for (int64_t i = 0; i < samples; ++i) {
        lo = std::min(lo, out[i]);
        hi = std::max(hi, out[i]);
    }
    if (lo > -32768 && hi < 32767) return 0;
    uint64_t n = 0;
    for (int64_t i = 0; i < samples; ++i)
        n += static_cast<uint64_t>((out[i] == 32767 || out[i] == -32768) && out[i] != in[i]);
    return n;
}
}  // namespace

EngineStream::EngineStream(HostSession &session, const DriveSchedule &drive, int rate, bool dc_cut, bool raw,
                           Sink sink)
    : session_(session), drive_(drive), rate_(rate), dc_cut_(dc_cut), raw_(raw), sink_(std::move(sink)),
      // room for the blocks of silence behind a full chunk
      seen_(2 * (kDelay + kChunk + kDelay)), out_(2 * (kChunk + kDelay)) {
    VORLDcCutInit(&dc_);
}

void EngineStream::mix(double strength, Sink removed) {
    mix_ = std::make_unique<RemovalMix>(strength, kDelay);
    removed_sink_ = std::move(removed);
    removed_.resize(out_.size());
}

void EngineStream::push(const int16_t *in, std::size_t frames) {
    if (mix_) mix_->take_input(in, frames);
    while (frames > 0) {
        const std::size_t n = std::min(frames, kChunk - filled_);
        std::memcpy(seen_.data() + 2 * (kDelay + filled_), in, 2 * n * sizeof(int16_t));
        filled_ += n;
        frames_ += static_cast<int64_t>(n);
        in += 2 * n;
        frames -= n;
        if (filled_ == kChunk) run_chunk(false);
    }
}

void EngineStream::finish() { run_chunk(true); }

void EngineStream::prime_session(const int16_t *chunk_in) {
    // What the library will be given: the first blocks, DC-cut from rest.
    const std::size_t frames = std::min(filled_, HostSession::kPrimeBlocks * kBlock);
    std::vector<int16_t> start(chunk_in, chunk_in + 2 * frames);
    VORLDcCutState dc{};
    VORLDcCutInit(&dc);
    if (dc_cut_) VORLDcCutProc(start.data(), &dc, static_cast<uint32_t>(frames));
    session_.prime(start.data(), frames, drive_.at(0, rate_));
}

void EngineStream::run_chunk(bool at_end) {
    int16_t *const chunk_in = seen_.data() + 2 * kDelay;
    if (prime_ && blocks_ == 0) prime_session(chunk_in);
    std::size_t chunk_blocks = (filled_ + kBlock - 1) / kBlock;
    if (at_end && !raw_) chunk_blocks += kDelay / kBlock;
    std::fill(chunk_in + 2 * filled_, chunk_in + 2 * chunk_blocks * kBlock, int16_t{0});
    for (std::size_t k = 0; k < chunk_blocks; ++k, ++blocks_) {
        int16_t *block = chunk_in + 2 * k * kBlock;
        if (dc_cut_) VORLDcCutProc(block, &dc_, kBlock);
        const DriveWords words = drive_.at(blocks_, rate_);
        if (k * kBlock < filled_)
            input_check_.take(block, std::min(kBlock, filled_ - k * kBlock), !words.driven() && words.wind == 0,
                              words.zoom != 0);
        session_.process(block, out_.data() + 2 * k * kBlock, words);
        if (after_block_) after_block_(blocks_);
    }
    // Output frame `produced_ + i` is input frame `produced_ + i - skip`.
    const int64_t skip = raw_ ? 0 : static_cast<int64_t>(kDelay);
    const int64_t span = static_cast<int64_t>(chunk_blocks * kBlock);
    const int64_t from = std::max<int64_t>(0, skip - produced_);
    const int64_t upto = raw_ ? span : std::min<int64_t>(span, skip + frames_ - produced_);
    saturated_ +=
        count_saturated(out_.data() + 2 * from, seen_.data() + 2 * from, 2 * std::max<int64_t>(0, upto - from));
    if (mix_) mix_->apply(out_.data(), removed_.data(), static_cast<std::size_t>(span));
    if (upto > from) {
        sink_(out_.data() + 2 * from, static_cast<std::size_t>(upto - from));
        if (removed_sink_) removed_sink_(removed_.data() + 2 * from, static_cast<std::size_t>(upto - from));
    }
    std::copy(seen_.begin() + 2 * span, seen_.begin() + 2 * (span + static_cast<int64_t>(kDelay)), seen_.begin());
    produced_ += span;
    filled_ = 0;
}

}  // namespace vorl
