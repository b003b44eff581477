#include "table_curves.h"

#include <cmath>

namespace vorl::tablekit {

double bin_hz(int bin) { return bin * 48000.0 / 512.0; }

BinCurve zoom_curve(const st_vorl &p, int channel) {
    BinCurve z{};
    float sum = 0.0f;
    int band = 0;
    for (int i = 0; i < kCurveBins; ++i) {
        sum += p.zspec_comp_coef_f_LR_d[channel][band];
        z[i] = sum;
        if (band < kBands - 1 && i == p.zspec_comp_base_bin[band]) ++band;
    }
    return z;
}

BinCurve group_curve(const float *increments) {
    BinCurve v{};
    float sum = 0.0f;
    for (int i = 0; i < kCurveBins; ++i) {
        sum += increments[(i + 3) / 4];
        v[i] = sum;
    }
    return v;
}

int band_first_bin(const st_vorl &p, int band) { return band == 0 ? 0 : p.zspec_comp_base_bin[band - 1] + 1; }

int group_node_bin(int g) { return g < kGroups - 1 ? 4 * g : kCurveBins - 1; }

void set_zoom_nodes(st_vorl &p, int channel, const float *values) {
    // Aimed from the value the running sum really reaches (see set_group_nodes).
    float reached = 0.0f;
    for (int b = 0; b < kBands; ++b) {
        const int first = band_first_bin(p, b);
        const int bins = p.zspec_comp_base_bin[b] - first + 1;
        const float step = (values[b] - reached) / static_cast<float>(bins);
        p.zspec_comp_coef_f_LR_d[channel][b] = step;
        for (int k = 0; k < bins; ++k) reached = reached + step;
    }
}

void set_linear_interpolation(st_vorl &p) {
    for (int b = 0; b < kBands; ++b) {
        const int first = band_first_bin(p, b);
        p.zspec_comp_inter_hop[b] = 1.0f / static_cast<float>(p.zspec_comp_base_bin[b] - first + 1);
    }
}

void set_group_nodes(float *increments, const float *values) {
    // Each step is aimed from the value the running sum really reaches, so
    // rounding does not accumulate; a curve aimed at 0 or above is nudged up
    // until rounding leaves it there.
    increments[0] = values[0];
    float reached = values[0];
    for (int g = 1; g < kGroups; ++g) {
        const int bins = group_node_bin(g) - group_node_bin(g - 1);
        float step = (values[g] - reached) / static_cast<float>(bins);
        auto end_of_group = [&] {
            float v = reached;
            for (int k = 0; k < bins; ++k) v = v + step;
            return v;
        };
        float v = end_of_group();
        while (values[g] >= 0.0f && reached >= 0.0f && v < 0.0f) {
            step = std::nextafter(step, 1.0f);
            v = end_of_group();
        }
        increments[g] = step;
        reached = v;
    }
}

}  // namespace vorl::tablekit
