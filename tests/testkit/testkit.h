// Shared test helpers: temporary table files, a host driving one work area
// through the exported functions, an engine set up straight from an image,
// deterministic noise, and digests of whole outputs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vorl.h"

namespace vorl::testkit {

// A fresh path in the temporary folder; the file is removed with the object.
class TempFile {
  public:
    explicit TempFile(const std::string &stem = "table");
    ~TempFile();
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

void write_file(const std::string &path, const void *data, size_t size);
std::vector<unsigned char> read_file(const std::string &path);
inline void write_table(const std::string &path, const st_vorl_tbl &t) { write_file(path, &t, sizeof t); }

// One instance driven through the host functions, with its table in a file.
class Host {
  public:
    explicit Host(const st_vorl_tbl &table);
    int32_t pre_process() { return VORLPreProcess(&res); }
    // One block: 256 interleaved frames in, 256 out (768 frames late).
    void block(const int16_t *in, int16_t *out);
    // Whole blocks of an interleaved recording, with per-block drive words
    // when given (else they stay as they are); returns the raw output.
    std::vector<int16_t> run(const std::vector<int16_t> &interleaved, const std::vector<uint32_t> &zoom = {},
                             const std::vector<uint32_t> &wind = {});
    VORLWorkArea &work() { return *work_; }
    st_vorl_ws &ws() { return work_->ws; }

    VORLResource res{};
    TempFile table_file;

  private:
    std::vector<VORLWorkArea> storage_;
    VORLWorkArea *work_;
};

// Sets an engine up from an image in memory, as VORLPreProcess would after
// reading the file, without any file. Returns sound_vorl_set's result.
int32_t setup_engine(VORLWorkArea &w, const st_vorl_tbl &t);

// Deterministic pseudo-random numbers (xorshift32).
class Noise {
  public:
    explicit Noise(uint32_t seed) : s_(seed ? seed : 1u) {}
    uint32_t next() {
        s_ ^= s_ << 13;
        s_ ^= s_ >> 17;
        s_ ^= s_ << 5;
        return s_;
    }
    // Uniform in [-1, 1).
    float uniform() { return static_cast<float>(static_cast<int32_t>(next())) * 4.656612873e-10f; }

  private:
    uint32_t s_;
};

// FNV-1a 64-bit digest of bytes, as 16 hex digits.
std::string digest(const void *data, size_t size);
template <typename T>
std::string digest(const std::vector<T> &v) {
    return digest(v.data(), v.size() * sizeof(T));
}

}  // namespace vorl::testkit

namespace vorl::testkit {

// A synthetic stereo recording with its per-block drive words: far-field
// tones identical in both channels up to a 3-sample delay, independent hiss,
// two zoom drives (one per direction) with motor whine and gear clicks that
// differ between the channels, and a stretch of wind rumble.
struct Recording {
    std::vector<int16_t> interleaved;  // whole blocks of 256 frames
    std::vector<uint32_t> zoom, wind;  // per block
    size_t blocks() const { return zoom.size(); }
};
Recording synthetic_recording(int blocks, uint32_t seed);

// A table whose fit thresholds let some measuring periods of the synthetic
// recording pass and others fail, in training mode, with a sloped equaliser
// that fades on every drive edge and drive-direction background templates.
st_vorl_tbl learning_table();

}  // namespace vorl::testkit
