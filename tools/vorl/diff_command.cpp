// vorl table diff: what changed between two tables, with the curves shown
// as the values the engine rebuilds (not their stored increments).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "cli.h"
#include "commands.h"
#include "table_checksum.h"
#include "table_curves.h"
#include "table_fields.h"
#include "table_store.h"

namespace vorl {

namespace {

const char kHelp[] = R"(usage: vorl table diff A B

Shows what differs between two tuning tables, e.g. a table before and after
"vorl process --learn", or a fitted table against the built-in one:
  - the zoom-noise coefficient per band and channel as the value at the
    band's end node (the curve the engine rebuilds from the stored
    increments), with the band's bins and frequencies;
  - the background templates and the equaliser per group node (bins 0, 4,
    .., 252, 255) the same way;
  - every other field that differs, by name and index.
A or B may also be a table's JSON (vorl table to-json, with or without
--curves), e.g. an edited copy before "vorl table from-json" builds it.
Frequencies are for 48 kHz. Exit status: 0 (equal or not), 1 usage error,
2 a file cannot be read.
)";

// Curves rebuilt from different increments may differ by rounding alone.
bool same(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || std::fabs(a - b) <= 1e-6f * std::fmax(std::fabs(a), std::fabs(b));
}

std::string change(float a, float b) {
    char s[64];
    if (a != 0.0f && std::isfinite(a) && std::isfinite(b) && (a > 0) == (b > 0) && b != 0.0f)
        std::snprintf(s, sizeof s, "%+7.2f dB", 10.0 * std::log10(static_cast<double>(b) / a));
    else
        std::snprintf(s, sizeof s, "%+.4g", static_cast<double>(b) - a);
    return s;
}

// A coefficient in a 9-wide column: fixed point while that fits, else
// exponent form (a hostile or damaged table can hold anything).
std::string coefficient(float v) {
    char s[32];
    std::snprintf(s, sizeof s, std::fabs(v) < 1e4f ? "%9.4f" : "%9.3g", static_cast<double>(v));
    return s;
}

// Fields shown as curves, not element by element.
bool is_curve(const std::string &name) {
    return name == "zspec_comp_coef_f_LR_d" || name == "back_ground_noise" || name == "eq_gain";
}

int zoom_diff(const st_vorl &a, const st_vorl &b) {
    int shown = 0;
    const tablekit::BinCurve ca[2] = {tablekit::zoom_curve(a, 0), tablekit::zoom_curve(a, 1)};
    const tablekit::BinCurve cb[2] = {tablekit::zoom_curve(b, 0), tablekit::zoom_curve(b, 1)};
    int first = 0;
    for (int band = 0; band < tablekit::kBands; ++band) {
        const int node = a.zspec_comp_base_bin[band];
        if (!same(ca[0][node], cb[0][node]) || !same(ca[1][node], cb[1][node])) {
            if (shown++ == 0)
                std::printf("zoom-noise coefficient at band nodes:\n"
                            "band  bins     Hz             left A    left B    change      right A   right B   change\n");
            std::printf("%4d  %3d-%3d  %5.0f-%5.0f  %s %s %s  %s %s %s\n", band, first, node, tablekit::bin_hz(first),
                        tablekit::bin_hz(node), coefficient(ca[0][node]).c_str(), coefficient(cb[0][node]).c_str(),
                        change(ca[0][node], cb[0][node]).c_str(), coefficient(ca[1][node]).c_str(),
                        coefficient(cb[1][node]).c_str(), change(ca[1][node], cb[1][node]).c_str());
        }
        first = node + 1;
    }
    return shown;
}

int group_diff(const char *title, const float *a, const float *b) {
    int shown = 0;
    const tablekit::BinCurve ca = tablekit::group_curve(a), cb = tablekit::group_curve(b);
    for (int g = 0; g < tablekit::kGroups; ++g) {
        const int bin = tablekit::group_node_bin(g);
        if (same(ca[bin], cb[bin])) continue;
        if (shown++ == 0) std::printf("%s at group nodes:\ngroup  bin    Hz        A             B             change\n", title);
        std::printf("%5d  %3d  %6.0f  %12.6g  %12.6g  %s\n", g, bin, tablekit::bin_hz(bin), ca[bin], cb[bin],
                    change(ca[bin], cb[bin]).c_str());
    }
    return shown;
}

// Every other field, element by element, through the field catalogue.
int field_diff(const st_vorl_tbl &a, const st_vorl_tbl &b) {
    int shown = 0;
    const auto *pa = reinterpret_cast<const unsigned char *>(&a), *pb = reinterpret_cast<const unsigned char *>(&b);
    for (const auto &section : tablekit::table_sections())
        for (const auto &f : section.fields) {
            if (is_curve(f.name)) continue;
            for (std::size_t k = 0; k < f.count(); ++k) {
                const std::size_t at = f.offset + k * f.element_size();
                if (std::memcmp(pa + at, pb + at, f.element_size()) == 0) continue;
                if (shown++ == 0) std::printf("other fields:\n");
                std::string va, vb;
                if (f.type == tablekit::FieldType::F32) {
                    float x, y;
                    std::memcpy(&x, pa + at, 4);
                    std::memcpy(&y, pb + at, 4);
                    va = std::to_string(x);
                    vb = std::to_string(y);
                } else {
                    int64_t x = 0, y = 0;
                    std::memcpy(&x, pa + at, f.element_size());
                    std::memcpy(&y, pb + at, f.element_size());
                    if (f.type == tablekit::FieldType::I16) x = static_cast<int16_t>(x), y = static_cast<int16_t>(y);
                    va = std::to_string(x);
                    vb = std::to_string(y);
                }
                std::printf("  %-36s %14s -> %s\n", tablekit::element_name(f, k).c_str(), va.c_str(), vb.c_str());
            }
        }
    return shown;
}

}  // namespace

int run_table_diff(int argc, char **argv, int first) {
    const cli::ParsedArgs args = cli::parse_args(argc, argv, first, {}, "table diff");
    if (args.help) {
        std::fputs(kHelp, stdout);
        std::exit(cli::kExitOk);
    }
    cli::expect_positional(args, 2, "table diff", "A B");
    cli::one_standard_input(args.positional);
    const st_vorl_tbl a = read_table_or_json(args.positional[0]), b = read_table_or_json(args.positional[1]);
    for (const auto &[t, path] : {std::pair{&a, args.positional[0]}, std::pair{&b, args.positional[1]}})
        if (tablekit::checksum(*t) != t->check_sum)
            cli::warn(cli::input_name(path) + ": checksum wrong, the tuning table is damaged; shown as it stands");
    std::printf("A: %s\nB: %s\n", cli::input_name(args.positional[0]).c_str(),
                cli::input_name(args.positional[1]).c_str());
    int shown = zoom_diff(a.st_vorl, b.st_vorl);
    static const char *const kTemplates[3] = {"AF", "WT", "TW"};
    for (int t = 0; t < 3; ++t)
        for (int ch = 0; ch < 2; ++ch) {
            const std::string title = std::string("background template ") + kTemplates[t] + (ch == 0 ? " left" : " right");
            shown += group_diff(title.c_str(), a.st_vorl.back_ground_noise[t][ch], b.st_vorl.back_ground_noise[t][ch]);
        }
    shown += group_diff("equaliser", a.st_vorl.eq_gain, b.st_vorl.eq_gain);
    shown += field_diff(a, b);
    if (shown == 0) std::printf("the tables are equal\n");
    return cli::kExitOk;
}

}  // namespace vorl
