// A recording at another rate than the tables': resampled to the engine's
// rate on the way in and back to its own rate on the way out (libsoxr),
// with TPDF dither where the signal meets 16 bits. OUT keeps IN's length
// exactly unless the library's raw stream is asked for.
#pragma once

#include <cstdint>
#include <vector>

#include "audio_io.h"
#include "engine_stream.h"
#include "progress.h"
#include "resampler.h"

namespace vorl {

class RateBridge {
public:
    // `float_out`: OUT holds more than 16 bits, so the resampled output is
    // written as it is instead of being dithered to 16 bits.
    RateBridge(int rate, int engine_rate, bool keep_length, SampleWriter &out, bool float_out);

    // The engine's sink: 16-bit frames at the engine's rate.
    void take(const int16_t *interleaved, std::size_t frames);

    // Runs IN through the engine, `read_frames` per read; returns when all
    // of OUT is written.
    void run(SampleReader &in, EngineStream &engine, Progress &progress, std::size_t read_frames);

    uint64_t input_clipped() const { return to_16bit_.clipped(); }  // going into the engine
    uint64_t output_clipped() const { return out_16bit_.clipped(); }

private:
    void flush();

    int engine_rate_;
    Resampler down_;
    bool keep_length_;
    SampleWriter &out_;
    bool float_out_;
    Requantizer to_16bit_{true}, out_16bit_{true};  // resampled values lie between the steps
    std::vector<float> as_float_, pending_;
    std::vector<int16_t> out16_;
    int64_t limit_ = 0, written_ = 0;  // OUT never runs ahead of IN
};

}  // namespace vorl
