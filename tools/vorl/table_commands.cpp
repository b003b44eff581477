// vorl table: create, inspect, check and convert tuning tables.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "pending_file.h"
#include "host_session.h"
#include "table_checksum.h"
#include "table_json.h"
#include "table_rules.h"
#include "table_store.h"
#include "vorl.h"

namespace vorl {

const char kTableHelp[] = R"(usage: vorl table COMMAND ...

  vorl table new OUT              write the built-in default table to OUT
  vorl table dump FILE            print the table's parameters as the library
                                  prints them (loaded through the library)
  vorl table check FILE           check the checksum, the version and every
                                  rule a usable table keeps; one line per
                                  violation, naming the field and index
  vorl table to-json FILE [--curves]
                                  print the table as JSON on standard output;
                                  --curves adds each curve as its values at
                                  its nodes, with bins and frequencies
  vorl table from-json JSON OUT   build a table from JSON ("-" reads standard
                                  input); the checksum is computed. A table
                                  that breaks a rule of "check" is refused
                                  (each violation listed) unless --force
  vorl table fit CAL_AUDIO --drive FILE -o OUT
                                  fit a table to a camera from a calibration
                                  take (vorl table fit --help)
  vorl table diff A B             what differs between two tables, curves as
                                  values per band or group with frequencies

A table name "-" reads standard input (one of A and B at most) or, for OUT
and -o, writes standard output (not a terminal).

Rules checked by "check": band nodes (zspec_comp_base_bin) strictly
increasing and ending at bin 255; fit-point ranges start < end <= 48;
processing range and control band not empty; division table: thresholds
positive and strictly decreasing, every starting value D[j] positive and
inside the Newton step's convergence range, D[j] < 2/S[j] (the interval's
upper end, where 2/x is smallest); block counters positive; every float
finite; smoothing weights within 0..1; level thresholds tbl_x not
increasing; the stored zoom-noise curve inside the bounds the library's
save-time plausibility check uses; the equaliser's gain over frequency
within 0..16 (+24 dB) and each background template between 0 and the
division table's top threshold S[0] (both rebuilt bin by bin from their
increments); over-estimation factors, noise-estimate biases, the wind bias
and val_x within 0..16; the suppression floor nr_floor_coef within 0..1 and
the coefficient floors positive and ordered (min <= max).

JSON: every field by its name, arrays as (nested) arrays, in file order.
Floats are written with the fewest digits (at most 9) that give back the
same bits; -0.0 stays -0.0; non-finite values are strings: "inf", "-inf",
"nan" (the quiet NaN 0x7fc00000) or "nan:0xXXXXXXXX" (any other NaN, by its
bit pattern). tbl_version is a hexadecimal string, the spare bytes and
tbl_cnt are included, the checksum is not (from-json computes it). So
to-json followed by from-json gives back the file byte for byte, when the
file's checksum was right. from-json refuses unknown and missing fields.
With --curves, a "curves" object gives the zoom-noise coefficient per band
node and the templates and equaliser per group node as the values the
engine rebuilds ({"band" or "group", "bin", "hz", "value"}). from-json
accepts it too: values equal to what the increments rebuild keep the
increments' bits (the round trip stays exact); edited values, or a curve
whose increments field is left out, become the increments that rebuild
them (zspec_comp_inter_hop is not changed).

Outputs are written atomically and never over the command's input. An
existing OUT is replaced only with -y (--overwrite); -n (--no-overwrite)
never replaces; without either the tool asks on a terminal, else refuses.
Exit status: 0 success (for check: no violation), 1 usage error, 2 input or
table error (for check: at least one violation).
)";

namespace {

// The arguments of "vorl table NAME": --help shows the group's text; exactly
// the positional arguments `synopsis` names.
cli::ParsedArgs table_args(int argc, char **argv, int first, const std::string &name, std::size_t positional,
                           const std::string &synopsis, const std::vector<cli::OptionDef> &options = {}) {
    cli::ParsedArgs args = cli::parse_args(argc, argv, first, options, "table " + name);
    if (args.help) {
        std::fputs(kTableHelp, stdout);
        std::exit(cli::kExitOk);
    }
    cli::expect_positional(args, positional, "table " + name, synopsis);
    return args;
}

}  // namespace

int run_table_new(int argc, char **argv, int first) {
    const cli::ParsedArgs args = table_args(argc, argv, first, "new", 1, "OUT", with_overwrite_options({}));
    check_replace(args.positional[0], replace_policy(args));
    write_table(args.positional[0], default_table());
    return cli::kExitOk;
}

int run_table_dump(int argc, char **argv, int first) {
    const cli::ParsedArgs args = table_args(argc, argv, first, "dump", 1, "FILE");
    const std::string path = args.positional[0];
    // The library loads its own copy of the file and prints its working
    // parameter blocks; its refusals become messages naming the file.
    HostSession(read_table(path), cli::input_name(path)).print_table();
    return cli::kExitOk;
}

int run_table_check(int argc, char **argv, int first) {
    const cli::ParsedArgs args = table_args(argc, argv, first, "check", 1, "FILE");
    const std::string path = args.positional[0], name = cli::input_name(path);
    const auto violations = tablekit::check_table_rules(read_table(path));
    for (const auto &v : violations) std::printf("%s: %s: %s\n", name.c_str(), v.where.c_str(), v.problem.c_str());
    if (violations.empty()) {
        std::fprintf(stderr, "vorl: %s: table passes every rule\n", name.c_str());
        return cli::kExitOk;
    }
    std::fprintf(stderr, "vorl: %s: %zu rule violation%s\n", name.c_str(), violations.size(),
                 violations.size() == 1 ? "" : "s");
    return cli::kExitInput;
}

int run_table_to_json(int argc, char **argv, int first) {
    const cli::ParsedArgs args = table_args(argc, argv, first, "to-json", 1, "FILE [--curves]", {{"curves"}});
    const std::string path = args.positional[0];
    const st_vorl_tbl t = read_table(path);
    if (tablekit::checksum(t) != t.check_sum)
        cli::warn(cli::input_name(path) + ": checksum wrong; from-json will compute a fresh one");
    std::fputs(tablekit::table_to_json(t, args.has("curves")).c_str(), stdout);
    return cli::kExitOk;
}

int run_table_from_json(int argc, char **argv, int first) {
    const cli::ParsedArgs args =
        table_args(argc, argv, first, "from-json", 2, "JSON OUT", with_overwrite_options({{"force"}}));
    const std::string src = args.positional[0], dst = args.positional[1];
    if (writes_over(dst, src))
        cli::usage_error(dst + ": is the JSON input; choose another output name");
    check_replace(dst, replace_policy(args));
    const st_vorl_tbl t = read_json_table(src);
    const auto violations = tablekit::check_table_rules(t);
    if (!violations.empty()) {
        const std::string name = cli::input_name(src);
        for (const auto &v : violations) std::fprintf(stderr, "vorl: %s: %s: %s\n", name.c_str(), v.where.c_str(), v.problem.c_str());
        if (!args.has("force"))
            cli::input_error(name + ": breaks " + std::to_string(violations.size()) + " table rule" +
                             (violations.size() == 1 ? "" : "s") + "; " + dst + " not written (--force writes it)");
    }
    write_table(dst, t);
    return cli::kExitOk;
}

}  // namespace vorl
