// vorl table: create, inspect, check and convert tuning tables.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "pending_file.h"
#include "table_builder.h"
#include "table_json.h"
#include "table_rules.h"
#include "table_store.h"
#include "vorl.h"

namespace vorl {

namespace {

const char kHelp[] = R"(usage: vorl table COMMAND ...

  vorl table new OUT              write the built-in default table to OUT
  vorl table dump FILE            print the table's parameters as the library
                                  prints them (loaded through the library)
  vorl table check FILE           check the checksum, the version and every
                                  rule a usable table keeps; one line per
                                  violation, naming the field and index
  vorl table to-json FILE         print the table as JSON on standard output
  vorl table from-json JSON OUT   build a table from JSON ("-" reads standard
                                  input); the checksum is computed

Rules checked by "check": band nodes (zspec_comp_base_bin) strictly
increasing and ending at bin 255; fit-point ranges start < end <= 48;
processing range and control band not empty; division table: thresholds
positive and strictly decreasing, every starting value D[j] positive and
inside the Newton step's convergence range, D[j] < 2/S[j] (the interval's
upper end, where 2/x is smallest); block counters positive; every float
finite; smoothing weights within 0..1; level thresholds tbl_x not
increasing; the stored zoom-noise curve inside the bounds the library's
save-time plausibility check uses.

JSON: every field by its name, arrays as (nested) arrays, in file order.
Floats are written with the fewest digits (at most 9) that give back the
same bits; -0.0 stays -0.0; non-finite values are strings: "inf", "-inf",
"nan" (the quiet NaN 0x7fc00000) or "nan:0xXXXXXXXX" (any other NaN, by its
bit pattern). tbl_version is a hexadecimal string, the spare bytes and
tbl_cnt are included, the checksum is not (from-json computes it). So
to-json followed by from-json gives back the file byte for byte, when the
file's checksum was right. from-json refuses unknown and missing fields.

Outputs are written atomically and never over the command's input.
Exit status: 0 success (for check: no violation), 1 usage error, 2 input or
table error (for check: at least one violation).
)";

[[noreturn]] void help_and_exit() {
    std::fputs(kHelp, stdout);
    std::exit(cli::kExitOk);
}

int table_new(const cli::ParsedArgs &args) {
    cli::expect_positional(args, 2, "table new", "OUT");
    write_table(args.positional[1], default_table());
    return cli::kExitOk;
}

int table_dump(const cli::ParsedArgs &args) {
    cli::expect_positional(args, 2, "table dump", "FILE");
    const std::string path = args.positional[1];
    (void)read_table(path);  // clear errors for a missing or mis-sized file
    // The library reads the file itself (it only writes in VORLPostProcess,
    // which is not called) and prints its working parameter blocks.
    std::vector<uint64_t> storage((VORL_WORK_SIZE + 7) / 8);
    VORLResource res{};
    VORLGetResourceSize(&res);
    if (res.resource_size > storage.size() * 8) storage.resize((res.resource_size + 7) / 8);
    res.p_work = storage.data();
    res.p_tbl_path = path.c_str();
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    const int32_t status = VORLPreProcess(&res);
    if (status == VORL_ERR_CHECKSUM) cli::input_error(path + ": checksum wrong, the tuning table is damaged");
    if (status == VORL_ERR_VERSION) cli::input_error(path + ": unsupported tuning-table version (expected 0x01030000)");
    if (status != VORL_OK) cli::input_error(path + ": the library cannot load this table (status " + std::to_string(status) + ")");
    std::fflush(stdout);
    sound_vorl_print_tbl(&static_cast<VORLWorkArea *>(res.p_work)->inst);
    std::fflush(stdout);
    return cli::kExitOk;
}

int table_check(const cli::ParsedArgs &args) {
    cli::expect_positional(args, 2, "table check", "FILE");
    const std::string path = args.positional[1];
    const auto violations = tablekit::check_table_rules(read_table(path));
    for (const auto &v : violations) std::printf("%s: %s: %s\n", path.c_str(), v.where.c_str(), v.problem.c_str());
    if (violations.empty()) {
        std::fprintf(stderr, "vorl: %s: table passes every rule\n", path.c_str());
        return cli::kExitOk;
    }
    std::fprintf(stderr, "vorl: %s: %zu rule violation%s\n", path.c_str(), violations.size(),
                 violations.size() == 1 ? "" : "s");
    return cli::kExitInput;
}

int table_to_json(const cli::ParsedArgs &args) {
    cli::expect_positional(args, 2, "table to-json", "FILE");
    const std::string path = args.positional[1];
    const st_vorl_tbl t = read_table(path);
    if (tablekit::checksum(t) != t.check_sum)
        cli::warn(path + ": checksum wrong; from-json will compute a fresh one");
    std::fputs(tablekit::table_to_json(t).c_str(), stdout);
    return cli::kExitOk;
}

int table_from_json(const cli::ParsedArgs &args) {
    cli::expect_positional(args, 3, "table from-json", "JSON OUT");
    const std::string src = args.positional[1], dst = args.positional[2];
    if (src != "-" && (src == dst || same_file(src, dst)))
        cli::usage_error(dst + ": is the JSON input; choose another output name");
    std::string text;
    if (src == "-") {
        std::ostringstream buf;
        buf << std::cin.rdbuf();
        text = buf.str();
    } else {
        text = read_file(src, "JSON table");
    }
    st_vorl_tbl t;
    try {
        t = tablekit::table_from_json(text);
    } catch (const tablekit::JsonError &e) {
        cli::input_error((src == "-" ? std::string("standard input") : src) + ": " + e.what());
    }
    write_table(dst, t);
    return cli::kExitOk;
}

}  // namespace

int run_table(int argc, char **argv, int first) {
    const cli::ParsedArgs args = cli::parse_args(argc, argv, first, {}, "table");
    if (args.positional.empty()) {
        if (args.help) help_and_exit();
        cli::usage_error("missing table command; usage: vorl table new|dump|check|to-json|from-json ...");
    }
    if (args.help) help_and_exit();
    const std::string cmd = args.positional[0];
    if (cmd == "new") return table_new(args);
    if (cmd == "dump") return table_dump(args);
    if (cmd == "check") return table_check(args);
    if (cmd == "to-json") return table_to_json(args);
    if (cmd == "from-json") return table_from_json(args);
    cli::usage_error("unknown table command \"" + cmd + "\" (see: vorl table --help)");
}

}  // namespace vorl
