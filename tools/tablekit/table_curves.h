// The table's curves over frequency as the engine rebuilds them from their
// stored per-bin increments by running sums over bins 0..255:
// - the zoom-noise coefficient (zspec_comp_coef_f_LR_d), one increment per
//   band, nodes at the bands' end bins zspec_comp_base_bin;
// - the background templates (back_ground_noise) and the equaliser
//   (eq_gain), one increment per group of four bins (bin 0 alone), nodes at
//   bins 0, 4, .., 252 and 255.
// Node values convert back to increments, so a curve can be edited by value.
#pragma once

#include <array>

#include "vorl.h"

namespace vorl::tablekit {

constexpr int kCurveBins = 256;
constexpr int kBands = 72;
constexpr int kGroups = 65;

using BinCurve = std::array<float, kCurveBins>;

// Frequency of bin k at 48 kHz (the rate tables are tuned for).
double bin_hz(int bin);

// First bin of coefficient band b (bins first..zspec_comp_base_bin[b]).
int band_first_bin(const st_vorl &p, int band);

// The coefficient curve's running sum (what the core uses up to
// zspec_comp_max_freq; above it the core takes zspec_comp_replace_value).
BinCurve zoom_curve(const st_vorl &p, int channel);

// A per-group curve: bin 0 takes increments[0], each later bin adds its
// group's increment (templates; the equaliser with eq_gain[0] its value at bin 0).
BinCurve group_curve(const float *increments);

// Bin of group node g: 4g, and 255 for the last group.
int group_node_bin(int g);

// Stores node values (one per band end) as the increments whose running
// sum passes through them.
void set_zoom_nodes(st_vorl &p, int channel, const float *values);

// zspec_comp_inter_hop = 1/bins of each band: the learning step then keeps
// the curve linear between band nodes.
void set_linear_interpolation(st_vorl &p);

// Stores group node values (at group_node_bin) as increments.
void set_group_nodes(float *increments, const float *values);

}  // namespace vorl::tablekit
