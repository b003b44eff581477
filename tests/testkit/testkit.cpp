#include "testkit.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

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

void Host::block(const int16_t *left, const int16_t *right, int16_t *out) {
    std::memcpy(res.p_in_ch0, left, 256 * sizeof(int16_t));
    std::memcpy(res.p_in_ch1, right, 256 * sizeof(int16_t));
    VORLEnterLibrary(&res);
    std::memcpy(out, res.p_out, 512 * sizeof(int16_t));
}

std::vector<int16_t> Host::run(const std::vector<int16_t> &interleaved) {
    const size_t blocks = interleaved.size() / 512;
    std::vector<int16_t> out(blocks * 512);
    int16_t left[256], right[256];
    for (size_t b = 0; b < blocks; ++b) {
        for (int i = 0; i < 256; ++i) {
            left[i] = interleaved[b * 512 + 2 * i];
            right[i] = interleaved[b * 512 + 2 * i + 1];
        }
        block(left, right, &out[b * 512]);
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
