// Command-line parsing shared by the scene programs: which scenes to make.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "scene.h"

namespace scenekit {

struct SceneSelection {
    std::vector<SceneType> types;
    std::vector<int> cameras;
    std::vector<uint64_t> seeds;
    double seconds = 20.0;
    std::vector<SceneId> ids() const;  // every type x camera x seed
};

// "--name value" options and positional arguments. Flags (options without
// a value) are listed in `flags`. Exits with status 1 and a message naming
// the option on anything malformed or unknown.
struct Args {
    std::map<std::string, std::string> options;
    std::vector<std::string> positional;
    bool has(const std::string &name) const { return options.count(name) != 0; }
    std::string get(const std::string &name, const std::string &fallback) const;
};
Args parse_args(int argc, char **argv, const std::vector<std::string> &valued, const std::vector<std::string> &flags,
                const char *usage);

// --types (comma list or "all"), --cameras and --seeds ("1,4,10-12"),
// --seconds; the defaults are the held-out set of docs/scenes.md.
SceneSelection parse_selection(const Args &args, const char *usage);

// --cameras ("0-7,108"), or `fallback` when it is not given.
std::vector<int> parse_cameras(const Args &args, const std::string &fallback, const char *usage);

// The value of option `name`, a single seed.
uint64_t parse_seed(const Args &args, const std::string &name, const char *usage);

[[noreturn]] void usage_error(const std::string &problem, const char *usage);

}  // namespace scenekit
