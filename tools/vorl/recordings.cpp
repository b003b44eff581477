#include "recordings.h"

#include "audio_io.h"
#include "cli.h"
#include "video_files.h"

namespace vorl {

void check_sample_rate(int rate, const std::string &name) {
    if (rate < kLowestRate || rate > kHighestRate)
        cli::input_error(name + ": sample rate " + std::to_string(rate) + " Hz lies outside the " +
                         std::to_string(kLowestRate) + "-" + std::to_string(kHighestRate) +
                         " Hz that recordings have; is the header right?");
}

std::unique_ptr<SampleReader> open_recording(const std::string &path, bool dither) {
    std::unique_ptr<SampleReader> in;
    if (path != "-" && is_video_container(path))
        in = open_video(path);
    else
        in = std::make_unique<AudioReader>(path, dither);
    check_sample_rate(in->sample_rate(), in->name());
    return in;
}

WholeRecording read_whole_recording(const std::string &path) {
    const std::unique_ptr<SampleReader> in = open_recording(path);
    in->require_stereo();
    WholeRecording r;
    r.name = in->name();
    r.rate = in->sample_rate();
    r.exact_length = dynamic_cast<const AudioReader *>(in.get()) != nullptr;  // not a video's coded sound
    constexpr std::size_t kChunk = 1 << 16;
    for (std::size_t done = 0;; done = r.samples.size() / 2) {
        r.samples.resize(2 * (done + kChunk));
        const std::size_t got = in->read(r.samples.data() + 2 * done, kChunk);
        r.samples.resize(2 * (done + got));
        if (got == 0) break;
    }
    const std::string premature = in->premature_end();
    if (!premature.empty()) cli::input_error(r.name + ": " + premature);
    r.clipped = in->clipped();
    r.not_numbers = in->not_numbers();
    return r;
}

std::vector<std::string> conversion_warnings(const std::string &name, uint64_t clipped, uint64_t not_numbers) {
    std::vector<std::string> found;
    if (clipped > 0) found.push_back(name + ": " + std::to_string(clipped) + " sample(s) clipped converting to 16-bit");
    if (not_numbers > 0)
        found.push_back(name + ": " + std::to_string(not_numbers) + " sample(s) not a number (NaN), read as silence");
    return found;
}

}  // namespace vorl
