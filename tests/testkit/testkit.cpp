#include "testkit.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "table_builder.h"

namespace vorl::testkit {

TempFile::TempFile(const std::string &stem) {
    const char *dir = std::getenv("TMPDIR");
    std::string tmpl = std::string(dir && *dir ? dir : "/tmp") + "/vorl-" + stem + "-XXXXXX";
    const int fd = mkstemp(tmpl.data());
    if (fd < 0) throw std::runtime_error("mkstemp failed");
    close(fd);
    path_ = tmpl;
}

TempFile::~TempFile() { std::remove(path_.c_str()); }

void write_file(const std::string &path, const void *data, size_t size) {
    std::FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) throw std::runtime_error("cannot write " + path);
    std::fwrite(data, 1, size, f);
    std::fclose(f);
}

std::vector<unsigned char> read_file(const std::string &path) {
    std::vector<unsigned char> bytes;
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return bytes;
    unsigned char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
    std::fclose(f);
    return bytes;
}

Host::Host(const st_vorl_tbl &table) : storage_(1), work_(storage_.data()) {
    write_table(table_file.path(), table);
    VORLGetResourceSize(&res);
    res.p_work = work_;
    res.p_tbl_path = table_file.path().c_str();
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
}

void Host::block(const int16_t *in, int16_t *out) {
    for (int i = 0; i < 256; ++i) {
        res.p_in_ch0[i] = in[2 * i];
        res.p_in_ch1[i] = in[2 * i + 1];
    }
    VORLEnterLibrary(&res);
    std::memcpy(out, res.p_out, 512 * sizeof(int16_t));
}

std::vector<int16_t> Host::run(const std::vector<int16_t> &interleaved, const std::vector<uint32_t> &zoom,
                               const std::vector<uint32_t> &wind) {
    std::vector<int16_t> out(interleaved.size() / 512 * 512);
    for (size_t b = 0; b < out.size() / 512; ++b) {
        if (!zoom.empty()) VORLSetDriveState(&res, zoom[b], 0, wind[b]);
        block(&interleaved[b * 512], &out[b * 512]);
    }
    return out;
}

int32_t setup_engine(VORLWorkArea &w, const st_vorl_tbl &t) {
    VORLResource res{};
    res.p_work = &w;
    VORLInitialize(&res);
    w.tbl = t;
    sound_vorl_init(&w);
    const int32_t result = sound_vorl_set(&w.hdr, &w.inst);
    sound_vorl_variable_param_set(&w.hdr, &w.inst);
    sound_CPulseFilter_init(&w.inst);
    return result;
}

std::string digest(const void *data, size_t size) {
    const auto *p = static_cast<const unsigned char *>(data);
    uint64_t h = 0xcbf29ce484222325ull;
    for (size_t i = 0; i < size; ++i) {
        h ^= p[i];
        h *= 0x100000001b3ull;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(h));
    return text;
}

}  // namespace vorl::testkit

namespace vorl::testkit {

namespace {
const float kTwoPi = 6.28318530718f;

int16_t clip16(float v) {
    if (v > 32767.0f) return 32767;
    if (v < -32768.0f) return -32768;
    return static_cast<int16_t>(v);
}
}  // namespace

Recording synthetic_recording(int blocks, uint32_t seed) {
    Recording rec;
    rec.zoom.assign(blocks, 0);
    rec.wind.assign(blocks, 0);
    for (int b = 0; b < blocks; ++b) {
        const float pos = static_cast<float>(b) / static_cast<float>(blocks);
        if (pos >= 0.30f && pos < 0.45f) rec.zoom[b] = 1;
        if (pos >= 0.60f && pos < 0.72f) rec.zoom[b] = 2;
        if (pos >= 0.80f && pos < 0.90f) rec.wind[b] = 1;
    }
    const size_t frames = static_cast<size_t>(blocks) * 256;
    std::vector<float> far(frames + 3);
    for (size_t n = 0; n < far.size(); ++n) {
        const float t = static_cast<float>(n) / 48000.0f;
        far[n] = 1800.0f * std::sin(kTwoPi * 440.0f * t) + 900.0f * std::sin(kTwoPi * 1250.0f * t + 1.0f) +
                 500.0f * std::sin(kTwoPi * 3100.0f * t) * std::sin(kTwoPi * 2.0f * t);
    }
    Noise noise(seed);
    float rumble[2] = {0.0f, 0.0f};
    rec.interleaved.resize(2 * frames);
    for (size_t n = 0; n < frames; ++n) {
        const size_t b = n / 256;
        const float t = static_cast<float>(n) / 48000.0f;
        for (int ch = 0; ch < 2; ++ch) {
            float v = far[n + (ch ? 0 : 3)] + 30.0f * noise.uniform();
            if (rec.zoom[b] != 0) {
                const float f0 = rec.zoom[b] == 1 ? 2300.0f : 1900.0f;  // whine of each direction
                v += (ch ? 700.0f : 450.0f) * std::sin(kTwoPi * f0 * t + (ch ? 0.0f : 2.0f));
                v += (ch ? 250.0f : 380.0f) * std::sin(kTwoPi * 2.0f * f0 * t);
                v += 250.0f * noise.uniform();
                if (n % 1920 == (ch ? 7u : 0u)) v += ch ? -9000.0f : 12000.0f;  // gear click
            }
            if (rec.wind[b] != 0) {
                rumble[ch] = 0.995f * rumble[ch] + 60.0f * noise.uniform();
                v += rumble[ch];
            }
            rec.interleaved[2 * n + ch] = clip16(v);
        }
    }
    return rec;
}

st_vorl_tbl learning_table() {
    st_vorl_tbl t = vorl::tablekit::reference_table();
    st_vorl &p = t.st_vorl;
    p.zspec_comp_case0_th = 2680.0f;
    p.zspec_comp_case1_th = 500.0f;
    p.train_mode = 1;
    p.zspec_comp_mod_time_coef_a = 0.02f;
    p.zspec_comp_mod_time_coef_b = 0.5f;
    p.eq_proc_flag = 1;
    for (int g = 1; g <= 64; ++g) p.eq_gain[g] = g < 20 ? 0.002f : -0.001f;
    for (int ch = 0; ch < 2; ++ch) {
        p.back_ground_noise[1][ch][0] = 2e-4f;
        p.back_ground_noise[2][ch][0] = 3e-4f;
        p.back_ground_noise[1][ch][30] = -2e-6f;
    }
    vorl::tablekit::seal(t);
    return t;
}

}  // namespace vorl::testkit
