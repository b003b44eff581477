// Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/:
//   make_corpus <corpus folder>
// The seeds are small and valid: the reference table with a few variations
// (other band nodes, fit ranges, counters, training mode) and drive
// patterns, quiet and loud rings for the pulse filter, and short streams for
// the DC-cut filter; for the tool's readers, the reference table as bytes,
// edits of its JSON text, and drive files and ranges, good and bad. The
// checked-in files are this program's output.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "table_builder.h"
#include "table_checksum.h"
#include "table_json.h"
#include "vorl.h"

namespace {

using Bytes = std::vector<uint8_t>;

void put(Bytes &b, const void *p, size_t n) {
    const auto *q = static_cast<const uint8_t *>(p);
    b.insert(b.end(), q, q + n);
}

bool write(const std::string &dir, const std::string &name, const Bytes &b) {
    mkdir(dir.c_str(), 0755);
    const std::string path = dir + "/" + name;
    std::FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) {
        std::fprintf(stderr, "make_corpus: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    std::fwrite(b.data(), 1, b.size(), f);
    std::fclose(f);
    return true;
}

// Table-host seed: flags, the whole table, then four control bytes a block.
Bytes host_seed(uint8_t flags, const st_vorl_tbl &t, const std::vector<uint8_t> &controls) {
    Bytes b{flags};
    put(b, &t, sizeof t);
    b.insert(b.end(), controls.begin(), controls.end());
    return b;
}

// Drive pattern: `idle` blocks without drive, then `drive` blocks of `zoom`.
std::vector<uint8_t> drive_pattern(int idle, int drive, uint8_t zoom, uint8_t c2, uint8_t amplitude) {
    std::vector<uint8_t> c;
    for (int i = 0; i < idle; ++i) c.insert(c.end(), {0, 0, c2, amplitude});
    for (int i = 0; i < drive; ++i) c.insert(c.end(), {zoom, static_cast<uint8_t>(i * 37), c2, amplitude});
    return c;
}

// Table-JSON seed that edits the reference table's JSON text (with its
// curves when `curves`): at the first `needle`, `removed` characters give
// way to `inserted`.
Bytes json_edit(bool curves, const std::string &needle, uint8_t removed, const std::string &inserted) {
    const std::string text = vorl::tablekit::table_to_json(vorl::tablekit::reference_table(), curves);
    const size_t at = text.find(needle);
    if (at == std::string::npos || at > 0xFFFF) {
        std::fprintf(stderr, "make_corpus: \"%s\" not found in the reference table's JSON\n", needle.c_str());
        std::exit(1);
    }
    Bytes b{static_cast<uint8_t>(curves ? 6 : 2), static_cast<uint8_t>(at & 0xFF), static_cast<uint8_t>(at >> 8),
            removed};
    put(b, inserted.data(), inserted.size());
    return b;
}

// Drive-file seed: flags, range text, length in frames, the file's text.
Bytes drive_seed(uint8_t flags, const std::string &range, uint32_t frames, const std::string &file) {
    Bytes b{flags, static_cast<uint8_t>(range.size())};
    put(b, range.data(), range.size());
    put(b, &frames, sizeof frames);
    put(b, file.data(), file.size());
    return b;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_corpus <corpus folder>\n");
        return 2;
    }
    const std::string root = argv[1];
    mkdir(root.c_str(), 0755);
    bool ok = true;

    // ---- table_host
    const std::string th = root + "/table_host";
    const st_vorl_tbl ref = vorl::tablekit::reference_table();
    // 0xF1: version forced, 301 blocks; 0x51: 111 blocks; 0x05: dump, 16 blocks.
    ok &= write(th, "reference_idle", host_seed(0x51, ref, drive_pattern(40, 0, 0, 1, 20)));
    ok &= write(th, "reference_zoom_wt", host_seed(0xF1, ref, drive_pattern(40, 60, 1, 1, 20)));
    ok &= write(th, "reference_zoom_tw_clicks", host_seed(0xF1, ref, drive_pattern(36, 70, 2, 3, 40)));
    ok &= write(th, "reference_dump", host_seed(0x05, ref, drive_pattern(4, 4, 1, 0, 10)));
    {
        st_vorl_tbl t = ref;  // training mode, short periods: learning every few blocks
        t.st_vorl.train_mode = 1;
        t.st_vorl.nz_block_counter = 4;
        t.st_vorl.i_block_counter = 2;
        t.st_vorl.z_block_counter = 3;
        t.st_vorlc.nr_ctrl_counter = 5;
        ok &= write(th, "training_short_periods", host_seed(0x71, t, drive_pattern(12, 20, 1, 17, 60)));
    }
    {
        st_vorl_tbl t = ref;  // edge fit ranges and control band
        t.st_vorl.zspec_comp_case0_sp = 47;
        t.st_vorl.zspec_comp_case0_ep = 48;
        t.st_vorl.zspec_comp_case1_sp = 10;
        t.st_vorl.zspec_comp_case1_ep = 10;
        t.st_vorlc.nr_ctrl_freq_sp = 0;
        t.st_vorlc.nr_ctrl_freq_ep = 255;
        t.st_vorl.wind_nr_proc_freq = 255;
        ok &= write(th, "edge_ranges_wind", host_seed(0x71, t, drive_pattern(34, 30, 2, 0x41, 90)));
    }
    {
        st_vorl_tbl t = ref;  // version word wrong: refused with -1400
        t.tbl_version = 0x01020000;
        vorl::tablekit::seal(t);
        ok &= write(th, "version_refused", host_seed(0x00, t, {}));
    }

    // ---- pulse_filter: calls, both rings, then eight control bytes a call
    const std::string pf = root + "/pulse_filter";
    {
        Bytes b{40};
        std::vector<int16_t> rings(2048);
        for (size_t i = 0; i < rings.size(); ++i) rings[i] = static_cast<int16_t>(i % 2 ? 100 : -100);
        put(b, rings.data(), rings.size() * 2);
        for (int call = 0; call < 40; ++call) {
            const uint8_t zoom = call >= 10 ? 1 : 0;
            b.insert(b.end(), {zoom, 0, 0, 0, 1, static_cast<uint8_t>(call * 53), static_cast<uint8_t>(call % 7 == 3 ? 0x40 : 0), 0});
        }
        ok &= write(pf, "alternating_with_clicks", b);
    }
    {
        Bytes b{20};
        std::vector<int16_t> rings(2048, 0);
        put(b, rings.data(), rings.size() * 2);
        for (int call = 0; call < 20; ++call) b.insert(b.end(), {2, 0, 0, 0, 255, 17, 0x7F, 0});
        ok &= write(pf, "loud_noise_zoom", b);
    }
    {
        Bytes b{8};
        std::vector<int16_t> rings(2048);
        for (size_t i = 0; i < rings.size(); ++i) rings[i] = static_cast<int16_t>(i % 3 ? 32767 : -32768);
        put(b, rings.data(), rings.size() * 2);
        ok &= write(pf, "full_scale_rings", b);
    }

    // ---- dc_cut: mode byte, optional state, interleaved frames
    const std::string dc = root + "/dc_cut";
    {
        Bytes b{0x06};
        for (int k = 0; k < 1000; ++k) {
            const int16_t frame[2] = {static_cast<int16_t>(k % 2 ? 1000 : -1000), 1000};
            put(b, frame, sizeof frame);
        }
        ok &= write(dc, "half_rate_and_dc", b);
    }
    {
        Bytes b{0x01};
        const double state[6] = {0.0, 62.5, 62.5, 0.0, -1.0e300, 1.0e-300};
        put(b, state, sizeof state);
        const int16_t frames[4] = {32767, -32768, -32768, 32767};
        put(b, frames, sizeof frames);
        ok &= write(dc, "extreme_state", b);
    }

    // ---- table_json: mode byte, then a table's bytes, a document or an edit
    const std::string tj = root + "/table_json";
    ok &= write(tj, "reference_bytes", host_seed(0x00, ref, {}));
    {
        st_vorl_tbl t = ref;  // nodes out of order, values JSON cannot hold
        t.st_vorl.zspec_comp_base_bin[10] = 3;
        t.st_vorl.eq_gain[5] = __builtin_nanf("");
        t.st_vorl.zspec_comp_coef_f_LR_d[1][3] = __builtin_inff();
        t.st_vorl.back_ground_noise[2][0][7] = -0.0f;
        vorl::tablekit::seal(t);
        ok &= write(tj, "hostile_bytes", host_seed(0x00, t, {}));
    }
    {
        const std::string doc = "{\"tbl_version\": \"0x01030000\", \"st_vorl\": {}, \"st_vorlc\": {}, \"tbl_cnt\": 0}";
        Bytes b{0x01};
        put(b, doc.data(), doc.size());
        ok &= write(tj, "document_incomplete", b);
    }
    ok &= write(tj, "edit_not_a_number", json_edit(false, "\"nr_floor_coef\": ", 0, "\"nan:0x7fc00001\", \"x\": "));
    ok &= write(tj, "edit_duplicate_key",
                json_edit(false, "\"st_vorlc\": {", 14, "\"st_vorlc\": {\"nr_ctrl_counter\": 1, "));
    ok &= write(tj, "edit_cut_short", json_edit(false, "\"zspec_comp_base_bin\"", 255, ""));
    ok &= write(tj, "edit_curve_value", json_edit(true, "\"value\": ", 10, "\"value\": 1e39, "));
    ok &= write(tj, "edit_curve_bin", json_edit(true, "\"bin\": ", 8, "\"bin\": 300, "));
    ok &= write(tj, "edit_curve_dropped", json_edit(true, "\"curves\": {", 12, "\"curves\": {\"eq_gain\": [], "));

    // ---- drive_file: flags, range text, frames, file text
    const std::string df = root + "/drive_file";
    // Rates by index: 6 44.1 kHz, 7 48 kHz, 0 1 Hz.
    ok &= write(df, "file_good",
                drive_seed(0x71, "", 2048, "# zoom af wind\n0 0 0\n1 0 0\n2 7 1\n\n0 4294967295 0\r\n"));
    ok &= write(df, "file_bad_word", drive_seed(0x71, "", 1024, "0 0 0\n3 0 0\n"));
    ok &= write(df, "file_extra_field", drive_seed(0x61, "", 512, "1 0 0 0\n"));
    ok &= write(df, "file_out_of_range", drive_seed(0x71, "", 512, "1 4294967296 0\n-0 0 0\n0x1 0 0\n"));
    ok &= write(df, "ranges_zoom_in", drive_seed(0x70, "0.5-1.5,2-2.25", 144000, ""));
    ok &= write(df, "ranges_both_ways", drive_seed(0x78, "1-2", 96000, ""));
    ok &= write(df, "ranges_malformed", drive_seed(0x64, "1e-3-2,,5-", 96000, ""));
    ok &= write(df, "ranges_past_end_one_hertz", drive_seed(0x06, "0-1e300", 1000, ""));
    return ok ? 0 : 1;
}
