#include "scene_args.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace scenekit {

namespace {

// The held-out set (docs/scenes.md): cameras and seeds no table is tuned on.
const char kHeldOutCameras[] = "8-11";
const char kHeldOutSeeds[] = "1000-1002";

bool parse_number(const std::string &text, unsigned long long &out) {
    if (text.empty() || text[0] == '-') return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtoull(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

std::vector<std::string> split(const std::string &text) {
    std::vector<std::string> items;
    std::size_t begin = 0;
    for (std::size_t comma; (comma = text.find(',', begin)) != std::string::npos; begin = comma + 1)
        items.push_back(text.substr(begin, comma - begin));
    items.push_back(text.substr(begin));
    return items;
}

// "1,4,10-12" -> 1 4 10 11 12
std::vector<unsigned long long> parse_list(const std::string &option, const std::string &text, const char *usage) {
    std::vector<unsigned long long> out;
    for (const std::string &item : split(text)) {
        const auto dash = item.find('-');
        unsigned long long lo, hi;
        const bool ok = dash == std::string::npos ? parse_number(item, lo) && parse_number(item, hi)
                                                  : parse_number(item.substr(0, dash), lo) &&
                                                        parse_number(item.substr(dash + 1), hi);
        if (!ok || hi < lo || hi - lo > 100000)
            usage_error("--" + option + " " + text + ": expected numbers and ranges, e.g. 1,4,10-12", usage);
        for (unsigned long long v = lo; v <= hi; ++v) out.push_back(v);
    }
    return out;
}

}  // namespace

void usage_error(const std::string &problem, const char *usage) {
    std::fprintf(stderr, "error: %s\n%s", problem.c_str(), usage);
    std::exit(1);
}

std::string Args::get(const std::string &name, const std::string &fallback) const {
    const auto it = options.find(name);
    return it == options.end() ? fallback : it->second;
}

Args parse_args(int argc, char **argv, const std::vector<std::string> &valued, const std::vector<std::string> &flags,
                const char *usage) {
    Args args;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-h" || a == "--help") {
            std::fputs(usage, stdout);
            std::exit(0);
        }
        if (a.rfind("--", 0) != 0) {
            args.positional.push_back(a);
            continue;
        }
        const std::string name = a.substr(2);
        bool known = false;
        for (const auto &v : valued)
            if (v == name) {
                if (i + 1 >= argc) usage_error(a + " needs a value", usage);
                args.options[name] = argv[++i];
                known = true;
            }
        for (const auto &f : flags)
            if (f == name) {
                args.options[name] = "";
                known = true;
            }
        if (!known) usage_error("unknown option " + a, usage);
    }
    return args;
}

std::vector<SceneId> SceneSelection::ids() const {
    std::vector<SceneId> out;
    for (SceneType t : types)
        for (int c : cameras)
            for (uint64_t s : seeds) out.push_back({t, c, s});
    return out;
}

uint64_t parse_seed(const Args &args, const std::string &name, const char *usage) {
    unsigned long long seed = 0;
    if (!parse_number(args.get(name, ""), seed)) usage_error("--" + name + " " + args.get(name, "") + ": expected a seed, e.g. 1", usage);
    return seed;
}

std::vector<int> parse_cameras(const Args &args, const std::string &fallback, const char *usage) {
    std::vector<int> cameras;
    for (unsigned long long c : parse_list("cameras", args.get("cameras", fallback), usage)) {
        if (c > 1000000) usage_error("--cameras: camera ids go up to 1000000", usage);
        cameras.push_back(static_cast<int>(c));
    }
    return cameras;
}

SceneSelection parse_selection(const Args &args, const char *usage) {
    SceneSelection sel;
    const std::string types = args.get("types", "all");
    if (types == "all") {
        sel.types.assign(std::begin(kSceneTypes), std::end(kSceneTypes));
    } else {
        for (const std::string &name : split(types)) {
            SceneType t;
            if (!parse_scene_type(name, t))
                usage_error("--types: unknown scene type \"" + name + "\" (speech, music, mixed, quiet, loud, wind, af, all)",
                            usage);
            sel.types.push_back(t);
        }
    }
    sel.cameras = parse_cameras(args, kHeldOutCameras, usage);
    for (unsigned long long s : parse_list("seeds", args.get("seeds", kHeldOutSeeds), usage)) sel.seeds.push_back(s);
    const std::string seconds = args.get("seconds", "20");
    char *end = nullptr;
    sel.seconds = std::strtod(seconds.c_str(), &end);
    if (*end != '\0' || !(sel.seconds >= 1.0 && sel.seconds <= 600.0))
        usage_error("--seconds " + seconds + ": expected a length from 1 to 600 seconds", usage);
    return sel;
}

}  // namespace scenekit
