#include "table_curves.h"

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

int group_node_bin(int g) { return g < kGroups - 1 ? 4 * g : kCurveBins - 1; }

void set_zoom_nodes(st_vorl &p, int channel, const float *values) {
    float previous = 0.0f;
    for (int b = 0; b < kBands; ++b) {
        const int first = b == 0 ? 0 : p.zspec_comp_base_bin[b - 1] + 1;
        const float bins = static_cast<float>(p.zspec_comp_base_bin[b] - first + 1);
        p.zspec_comp_coef_f_LR_d[channel][b] = (values[b] - previous) / bins;
        p.zspec_comp_inter_hop[b] = 1.0f / bins;
        previous = values[b];
    }
}

void set_group_nodes(float *increments, const float *values) {
    increments[0] = values[0];
    for (int g = 1; g < kGroups; ++g)
        increments[g] = (values[g] - values[g - 1]) / static_cast<float>(group_node_bin(g) - group_node_bin(g - 1));
}

}  // namespace vorl::tablekit
