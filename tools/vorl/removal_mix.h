// How much of what the noise reducer removed is taken away (--strength),
// and what it removed (--removed). Both compare the library's output with
// the input it came from, so the input is held back by the library's delay.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorl {

class RemovalMix {
public:
    // `strength` 0..1: 1 keeps the library's output as it is, 0 gives back
    // the input. `delay_frames`: how far the output lags its input.
    RemovalMix(double strength, std::size_t delay_frames);

    // The input frames as handed to the library (before any in-place
    // filtering such as the DC cut), in order.
    void take_input(const int16_t *in, std::size_t frames);

    // The library's output for the next `frames` frames: rewritten as
    // in + strength × (out − in), rounded to nearest; `removed`, when not
    // null, receives in − (the rewritten out), saturated. Input before the
    // first frame taken and after the last counts as silence, as the
    // library was given.
    void apply(int16_t *out, int16_t *removed, std::size_t frames);

private:
    float strength_;
    std::vector<int16_t> held_;  // input frames not yet matched with output
};

}  // namespace vorl
