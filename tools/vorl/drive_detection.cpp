#include "drive_detection.h"

#include <cmath>
#include <cstring>

#include "sample_stream.h"
#include "drive_detector.h"

namespace vorl {

std::vector<DriveWords> detect_input_drives(SampleReader &in, const st_vorl_tbl *table, int engine_rate) {
    DriveDetector detector(table);
    std::vector<DriveWords> found;
    int16_t block[2 * DriveDetector::kBlock];
    DriveWords w;
    for (std::size_t got; (got = in.read(block, DriveDetector::kBlock)) > 0;) {
        std::memset(block + 2 * got, 0, (DriveDetector::kBlock - got) * 2 * sizeof(int16_t));
        if (detector.push(block, w)) found.push_back(w);
    }
    while (detector.flush(w)) found.push_back(w);
    mark_autofocus_runs(found);
    if (in.sample_rate() == engine_rate) return found;
    const double ratio = static_cast<double>(in.sample_rate()) / engine_rate;
    const auto blocks = static_cast<std::size_t>(std::ceil(found.size() / ratio));
    std::vector<DriveWords> words(blocks);
    for (std::size_t b = 0; b < blocks; ++b) {
        const auto from = static_cast<std::size_t>(static_cast<double>(b) * ratio);
        if (from < found.size()) words[b] = found[from];
    }
    return words;
}

DriveTally tally_drives(const std::vector<DriveWords> &words, int rate) {
    DriveTally t;
    for (std::size_t b = 0; b < words.size(); ++b) {
        if (!words[b].driven()) continue;
        t.drives += b == 0 || !words[b - 1].driven();
        t.seconds += DriveDetector::kBlock / static_cast<double>(rate);
    }
    return t;
}

}  // namespace vorl
