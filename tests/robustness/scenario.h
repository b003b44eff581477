// A recording with zoom drives, wind and clicks, and one instance driven
// through the host functions, shared by the allocation and thread tests.
// Everything here is deterministic: the same seed gives the same samples.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "vorl.h"

namespace vorl::robustness {

// Block ranges of the drive schedule: long enough idle stretches for the
// no-zoom fit (32 blocks in the reference table), drives in both directions
// with their opening phase and several zoom fits, and a windy drive.
struct DriveSpan {
    int first, last;  // blocks, inclusive
    uint32_t zoom, wind;
};
inline constexpr DriveSpan kSchedule[] = {
    {60, 119, 1, 0}, {180, 239, 2, 0}, {300, 359, 1, 1}, {372, 375, 2, 1},
};
inline constexpr int kBlocks = 400;

struct Recording {
    std::vector<int16_t> left, right;  // kBlocks * 256 samples each
    std::vector<uint32_t> zoom, wind;  // per block
};

inline int16_t clamp16(int32_t v) {
    return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
}

// Quiet hiss, independent in the two channels, a loud tone at a quarter of
// the sample rate common to both (outside the learning's fit points), and
// during a drive a faint motor buzz of opposite sign in the two channels, so
// that the difference power carries it. Levels are chosen so that the
// no-zoom and zoom fit tests of the reference table pass and the learning
// step really updates coefficients. A click every 29 blocks and a stretch of
// clipped samples come on top.
inline Recording make_recording(uint32_t seed) {
    Recording r;
    r.left.resize(kBlocks * 256);
    r.right.resize(kBlocks * 256);
    r.zoom.assign(kBlocks, 0);
    r.wind.assign(kBlocks, 0);
    for (const DriveSpan &s : kSchedule)
        for (int b = s.first; b <= s.last; ++b) {
            r.zoom[b] = s.zoom;
            r.wind[b] = s.wind;
        }
    uint32_t x = seed ? seed : 1u;
    auto noise = [&x](int32_t amplitude) {  // xorshift32, uniform in +-amplitude
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        return static_cast<int32_t>(x % (2u * amplitude + 1u)) - amplitude;
    };
    for (int b = 0; b < kBlocks; ++b) {
        for (int i = 0; i < 256; ++i) {
            const int t = b * 256 + i;
            const int32_t tone = t % 4 == 1 ? 2000 : t % 4 == 3 ? -2000 : 0;
            int32_t l = tone + noise(150);
            int32_t rr = tone + noise(150);
            if (r.zoom[b] != 0) {
                const int32_t p = t % (r.zoom[b] == 1 ? 23 : 31);
                const int32_t buzz = (p < 12 ? p : 23 - p) * 40 / 11 + noise(10);
                l += buzz;
                rr -= buzz;
            }
            r.left[t] = clamp16(l);
            r.right[t] = clamp16(rr);
        }
        if (b % 29 == 7) r.left[b * 256 + 20 + (b * 37) % 200] = static_cast<int16_t>(b % 2 ? 12000 : -12000);
        if (b >= 250 && b < 253)
            for (int i = 0; i < 256; i += 3) r.right[b * 256 + i] = static_cast<int16_t>(i % 2 ? 32767 : -32768);
    }
    return r;
}

// A file in the temporary folder, removed with the object.
class TempPath {
  public:
    TempPath() {
        const char *dir = std::getenv("TMPDIR");
        std::string tmpl = std::string(dir && *dir ? dir : "/tmp") + "/vorl-robust-XXXXXX";
        const int fd = mkstemp(tmpl.data());
        if (fd < 0) throw std::runtime_error("mkstemp failed");
        close(fd);
        path_ = tmpl;
    }
    ~TempPath() { std::remove(path_.c_str()); }
    TempPath(const TempPath &) = delete;
    TempPath &operator=(const TempPath &) = delete;
    const char *c_str() const { return path_.c_str(); }

  private:
    std::string path_;
};

inline void write_bytes(const char *path, const void *data, size_t size) {
    std::FILE *f = std::fopen(path, "wb");
    if (f == nullptr) throw std::runtime_error(std::string("cannot write ") + path);
    std::fwrite(data, 1, size, f);
    std::fclose(f);
}

inline std::vector<unsigned char> read_bytes(const char *path) {
    std::vector<unsigned char> bytes(VORL_TBL_SIZE + 1);
    std::FILE *f = std::fopen(path, "rb");
    if (f == nullptr) return {};
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), f));
    std::fclose(f);
    return bytes;
}

// One noise-reduction instance with its own work area and table file. The
// host steps are split so that a caller can measure each library call.
class Instance {
  public:
    explicit Instance(const st_vorl_tbl &table) : work_(new VORLWorkArea()) {
        write_bytes(table_.c_str(), &table, sizeof table);
        res.p_work = work_.get();
        res.p_tbl_path = table_.c_str();
    }
    VORLWorkArea &work() { return *work_; }
    const char *table_path() const { return table_.c_str(); }

    // Writes block b of the recording into the input runs and sets the
    // block's drive words; the library call itself is left to the caller.
    void stage_block(const Recording &r, int b) {
        std::memcpy(res.p_in_ch0, &r.left[b * 256], 256 * sizeof(int16_t));
        std::memcpy(res.p_in_ch1, &r.right[b * 256], 256 * sizeof(int16_t));
        VORLSetDriveState(&res, r.zoom[b], 0, r.wind[b]);
    }
    void collect_output(std::vector<int16_t> &out) const {
        out.insert(out.end(), res.p_out, res.p_out + 512);
    }

    // The whole host sequence with the pulse filter on; returns the output
    // of every block.
    std::vector<int16_t> run(const Recording &r) {
        std::vector<int16_t> out;
        if (VORLGetResourceSize(&res) != 0 || VORLGetResourceInfo(&res) != 0 || VORLInitialize(&res) != 0 ||
            VORLPreProcess(&res) != 0)
            throw std::runtime_error("host set-up failed");
        work_->pulse_proc_flag = 1;
        out.reserve(static_cast<size_t>(kBlocks) * 512);
        for (int b = 0; b < kBlocks; ++b) {
            stage_block(r, b);
            VORLEnterLibrary(&res);
            collect_output(out);
        }
        VORLPostProcess(&res);
        return out;
    }

    VORLResource res{};

  private:
    TempPath table_;
    std::unique_ptr<VORLWorkArea> work_;
};

}  // namespace vorl::robustness
