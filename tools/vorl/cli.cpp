#include "cli.h"

#include <algorithm>
#include <cstdio>

namespace vorl::cli {

void usage_error(const std::string &message) { throw Failure(kExitUsage, message); }
void input_error(const std::string &message) { throw Failure(kExitInput, message); }

void warn(const std::string &message) { std::fprintf(stderr, "vorl: warning: %s\n", message.c_str()); }

void one_standard_input(const std::vector<std::string> &inputs) {
    if (std::count(inputs.begin(), inputs.end(), "-") > 1)
        usage_error("standard input (\"-\") can be only one of the inputs");
}

std::string excerpt(const std::string &text, std::size_t limit) {
    std::string out;
    for (const char c : text) {
        if (out.size() >= limit) return out + "...";
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            out += c;
        } else {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02x", byte);
            out += hex;
        }
    }
    return out;
}

std::string ParsedArgs::value(const std::string &name) const {
    auto it = values.find(name);
    return it == values.end() || it->second.empty() ? std::string() : it->second.back();
}

const std::vector<std::string> &ParsedArgs::all(const std::string &name) const {
    static const std::vector<std::string> none;
    auto it = values.find(name);
    return it == values.end() ? none : it->second;
}

ParsedArgs parse_args(int argc, char **argv, int first, const std::vector<OptionDef> &defs,
                      const std::string &command) {
    ParsedArgs out;
    bool options_done = false;
    for (int i = first; i < argc; ++i) {
        const std::string arg = argv[i];
        if (options_done || arg.size() < 2 || arg[0] != '-') {
            out.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        if (arg == "-h" || arg == "--help") {
            out.help = true;
            continue;
        }
        std::string name, value;
        bool has_inline_value = false;
        const OptionDef *def = nullptr;
        if (arg[1] == '-') {
            const auto eq = arg.find('=');
            name = arg.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
            if (eq != std::string::npos) {
                value = arg.substr(eq + 1);
                has_inline_value = true;
            }
            for (const auto &s : defs)
                if (s.name == name) def = &s;
        } else if (arg.size() == 2) {
            for (const auto &s : defs)
                if (s.short_name == arg[1]) def = &s;
        }
        if (def == nullptr) {
            std::vector<std::string> known;
            for (const auto &d : defs) known.push_back("--" + d.name);
            const std::string typed = arg.substr(0, arg.find('='));
            usage_error("unknown option " + arg + did_you_mean(typed, known) + " (see: vorl " + command + " --help)");
        }
        if (def->takes_value && !has_inline_value) {
            if (i + 1 >= argc) usage_error("option --" + def->name + " needs a value (see: vorl " + command + " --help)");
            value = argv[++i];
        } else if (!def->takes_value && has_inline_value) {
            usage_error("option --" + def->name + " takes no value");
        }
        out.values[def->name].push_back(value);
    }
    return out;
}

void expect_positional(const ParsedArgs &args, std::size_t n, const std::string &command,
                       const std::string &synopsis) {
    if (args.positional.size() != n)
        usage_error(std::string(args.positional.size() < n ? "missing" : "too many") +
                    " arguments; usage: vorl " + command + " " + synopsis);
}

namespace {

// Edits (insertions, deletions, substitutions, swaps of neighbours) from a to b.
std::size_t edit_distance(const std::string &a, const std::string &b) {
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i)
        for (std::size_t j = 1; j <= b.size(); ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

}  // namespace

std::string did_you_mean(const std::string &word, const std::vector<std::string> &known) {
    const std::string *best = nullptr;
    std::size_t best_distance = 0;
    for (const std::string &k : known) {
        const std::size_t d = edit_distance(word, k);
        if (best == nullptr || d < best_distance) best = &k, best_distance = d;
    }
    // Near enough to be a slip, not another word: two edits at most, one for short names.
    const std::size_t allowed = word.size() <= 4 ? 1 : 2;
    return best != nullptr && best_distance > 0 && best_distance <= allowed ? "; did you mean " + *best + "?" : "";
}

}  // namespace vorl::cli
