// Pieces shared by the fuzz targets: a reader over the fuzzer's bytes that
// yields zeros once they run out, a scratch file for what a target reads, and
// an invariant check that crashes loudly (the fuzzer then keeps the input).
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace vorl::fuzz {

class Bytes {
  public:
    Bytes(const uint8_t *data, size_t size) : p_(data), n_(size) {}
    size_t left() const { return n_; }
    const uint8_t *data() const { return p_; }
    uint8_t u8() {
        if (n_ == 0) return 0;
        --n_;
        return *p_++;
    }
    uint32_t u32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(u8()) << (8 * i);
        return v;
    }
    // Copies up to `size` bytes over `out`; what is not there stays as it was.
    size_t take(void *out, size_t size) {
        const size_t k = size < n_ ? size : n_;
        if (k != 0) std::memcpy(out, p_, k);
        p_ += k;
        n_ -= k;
        return k;
    }

  private:
    const uint8_t *p_;
    size_t n_;
};

// Byte i of a cyclic control stream (0 when there is none).
inline uint8_t cyclic(const uint8_t *data, size_t size, size_t i) { return size == 0 ? 0 : data[i % size]; }

// xorshift32: cheap deterministic samples from a seed taken from the input.
struct Noise {
    uint32_t s;
    explicit Noise(uint32_t seed) : s(seed ? seed : 0x9E3779B9u) {}
    uint32_t next() {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        return s;
    }
    // Uniform in -amplitude..amplitude, amplitude at most 32767.
    int16_t sample(int32_t amplitude) {
        return static_cast<int16_t>(static_cast<int32_t>(next() % (2u * static_cast<uint32_t>(amplitude) + 1u)) -
                                    amplitude);
    }
};

// One scratch file per process for the file a target hands to the code
// under test (a tuning table, a drive file), removed when the process exits
// (a plain array, so that it is still there for the exit handler).
inline const char *scratch_path() {
    static char path[4096];
    static const bool made = [] {
        const char *dir = std::getenv("TMPDIR");
        std::snprintf(path, sizeof path, "%s/vorl-fuzz-XXXXXX", dir && *dir ? dir : "/tmp");
        const int fd = mkstemp(path);
        if (fd >= 0) close(fd);
        std::atexit([] { std::remove(path); });
        return true;
    }();
    (void)made;
    return path;
}

// A broken invariant: report it and crash, so that the input is kept.
[[noreturn]] inline void invariant_broken(const char *what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::fflush(stderr);
    std::abort();
}

// Replaces the scratch file's contents with `size` bytes; returns its path.
inline const char *write_scratch(const void *data, size_t size) {
    const char *path = scratch_path();
    std::FILE *f = std::fopen(path, "wb");
    if (f == nullptr) invariant_broken("cannot write the scratch file");
    if (size != 0) std::fwrite(data, 1, size, f);
    std::fclose(f);
    return path;
}

}  // namespace vorl::fuzz
