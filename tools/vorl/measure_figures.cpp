#include "measure_figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "vorl.h"

namespace vorl {

std::string MeasureFigures::text() const {
    std::string out;
    char line[96];
    for (const Group &g : groups) {
        std::snprintf(line, sizeof line, "%s: %lld blocks (%.2f s)\n", g.name.c_str(), static_cast<long long>(g.blocks),
                      g.seconds);
        out += line;
        for (const auto &[name, db] : g.values) {
            std::snprintf(line, sizeof line, "  %-19s %6.2f dB\n", (name + ":").c_str(), db);
            out += line;
        }
    }
    return out;
}

std::string MeasureFigures::json() const {
    // "engine's reach" -> "engines_reach", "reach, scene mono" -> "reach_scene_mono"
    auto key = [](std::string name) {
        name.erase(std::remove(name.begin(), name.end(), '\''), name.end());
        std::replace_if(name.begin(), name.end(), [](char c) { return c == ' ' || c == ','; }, '_');
        name.erase(std::unique(name.begin(), name.end(), [](char a, char b) { return a == '_' && b == '_'; }),
                   name.end());
        return name;
    };
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    for (const Group &g : groups) {
        nlohmann::ordered_json &group = out[key(g.name)];
        group["blocks"] = g.blocks;
        group["seconds"] = g.seconds;
        for (const auto &[name, db] : g.values)
            group[key(name) + "_db"] = std::isfinite(db) ? nlohmann::ordered_json(db) : nlohmann::ordered_json();
    }
    return out.dump(2) + "\n";
}

MeasureFigures measure_figures(const DriveMeasure &m, int rate, NamedFigures yardsticks) {
    const double block_s = VORL_BLOCK_FRAMES / static_cast<double>(rate);
    NamedFigures during = {{"noise attenuation", m.drives.attenuation_db()}};
    during.insert(during.end(), yardsticks.begin(), yardsticks.end());
    MeasureFigures f;
    f.groups.push_back({"during drives", m.drives.blocks, m.drives.blocks * block_s, std::move(during)});
    f.groups.push_back({"outside drives", m.outside.blocks, m.outside.blocks * block_s,
                        {{"level change", m.outside.level_change_db()},
                         {"difference energy", m.outside.difference_db()}}});
    if (m.wind.blocks > 0)
        f.groups.push_back({"during wind outside drives", m.wind.blocks, m.wind.blocks * block_s,
                            {{"noise attenuation", m.wind.attenuation_db()}}});
    return f;
}

NamedFigures ceiling_figures(const int16_t *clean, const int16_t *noisy, std::size_t frames, const BlockWordsAt &words,
                             float floor) {
    const std::vector<int16_t> ideal = oracle_output(clean, noisy, frames, words);
    auto reach = [&](ContentDifference content) {
        return difference_model_reach(clean, noisy, frames, words, floor, content).drives.attenuation_db();
    };
    return {{"oracle", measure_drives(clean, noisy, ideal.data(), frames, words).drives.attenuation_db()},
            {"engine's reach", reach(ContentDifference::heard)},
            {"reach, scene mono", reach(ContentDifference::ignored)}};
}

}  // namespace vorl
