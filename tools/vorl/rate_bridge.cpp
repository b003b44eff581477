#include "rate_bridge.h"

#include <algorithm>

namespace vorl {

RateBridge::RateBridge(int rate, int engine_rate, bool keep_length, SampleWriter &out, bool float_out)
    : engine_rate_(engine_rate), down_(engine_rate, rate), keep_length_(keep_length), out_(out), float_out_(float_out) {}

void RateBridge::take(const int16_t *p, std::size_t frames) {
    as_float_.resize(2 * frames);
    for (std::size_t i = 0; i < 2 * frames; ++i) as_float_[i] = p[i] / 32768.0f;
    down_.push(as_float_.data(), frames, pending_);
    flush();
}

void RateBridge::run(SampleReader &in, EngineStream &engine, Progress &progress, std::size_t read_frames) {
    Resampler up(in.sample_rate(), engine_rate_);
    std::vector<float> buf(2 * read_frames), up_out;
    std::vector<int16_t> engine_in;
    auto feed = [&] {
        engine_in.resize(up_out.size());
        for (std::size_t i = 0; i < up_out.size(); ++i) engine_in[i] = to_16bit_(up_out[i]);
        engine.push(engine_in.data(), engine_in.size() / 2);
        up_out.clear();
    };
    while (const std::size_t n = in.read(buf.data(), read_frames)) {
        limit_ = in.frames_read();
        up.push(buf.data(), n, up_out);
        feed();
        progress.update(in.frames_read());
    }
    up.finish(up_out);
    feed();
    engine.finish();
    down_.finish(pending_);
    flush();
    if (keep_length_) {  // the filters' rounding: pad to IN's length exactly
        pending_.assign(2 * static_cast<std::size_t>(std::max<int64_t>(0, limit_ - written_)), 0.0f);
        flush();
    }
}

void RateBridge::flush() {
    std::size_t frames = pending_.size() / 2;
    if (keep_length_) frames = static_cast<std::size_t>(std::clamp<int64_t>(limit_ - written_, 0, frames));
    if (float_out_) {
        out_.write(pending_.data(), frames);
    } else {
        out16_.resize(2 * frames);
        for (std::size_t i = 0; i < 2 * frames; ++i) out16_[i] = out_16bit_(pending_[i]);
        out_.write(out16_.data(), frames);
    }
    written_ += static_cast<int64_t>(frames);
    pending_.clear();
}

}  // namespace vorl
