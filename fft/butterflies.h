// Radix-4 butterflies of the real transforms on values of any type with
// +, - and * (float for the scalar transforms, a lane type for the vector
// paths), so every path does the same operations in the same order.
// Internal linkage: each file gets its own copy for its instruction set.
#pragma once

namespace {

// Radix-4 butterflies on values. Zero and middle butterflies take
// x[0], x[q], x[2q], x[3q] (offset by k = Q/2 for the middle one); the
// general butterfly takes e = x[k], x[q-k], x[q+k], x[2q-k], x[2q+k],
// x[3q-k], x[3q+k], x[4q-k] and w = c1, s1, c2, s2, c3, s3.
template <class T>
inline void forward_zero(T &x0, T &x1, T &x2, T &x3) {
    const T a0 = x0, a1 = x1, a2 = x2, a3 = x3;
    x0 = (a0 + a1) + (a2 + a3);
    x1 = a0 - a1;
    x2 = (a0 + a1) - (a2 + a3);
    x3 = a2 - a3;
}

template <class T>
inline void forward_k(T *e, const T *w) {
    const T t1re = w[2] * e[2] - w[3] * e[3];
    const T t1im = w[3] * e[2] + w[2] * e[3];
    const T t2re = w[0] * e[4] - w[1] * e[5];
    const T t2im = w[1] * e[4] + w[0] * e[5];
    const T t3re = w[4] * e[6] - w[5] * e[7];
    const T t3im = w[5] * e[6] + w[4] * e[7];
    const T a = e[0];
    const T b = e[1];
    e[0] = (a + t1re) + (t2re + t3re);
    e[3] = (a + t1re) - (t2re + t3re);
    e[1] = (a - t1re) + (t2im - t3im);
    e[2] = (a - t1re) - (t2im - t3im);
    e[7] = (b + t1im) + (t2im + t3im);
    e[4] = (t2im + t3im) - (b + t1im);
    e[5] = (b - t1im) + (t2re - t3re);
    e[6] = (t2re - t3re) - (b - t1im);
}

template <class T>
inline void forward_middle(T &x0, T &x1, T &x2, T &x3, T r) {
    const T a0 = x0, a1 = x1, a2 = x2, a3 = x3;
    x0 = a0 + r * (a2 - a3);
    x1 = a0 - r * (a2 - a3);
    x2 = r * (a2 + a3) - a1;
    x3 = a1 + r * (a2 + a3);
}

template <class T>
inline void inverse_zero(T &x0, T &x1, T &x2, T &x3) {
    const T a0 = x0, a1 = x1, a2 = x2, a3 = x3;
    x0 = (a1 + a1) + (a0 + a2);
    x1 = (a0 + a2) - (a1 + a1);
    x2 = (a0 - a2) + (a3 + a3);
    x3 = (a0 - a2) - (a3 + a3);
}

template <class T>
inline void inverse_k(T *x, const T *w) {
    const T p = x[0], pm = x[1], pp = x[2], hm = x[3];
    const T hp = x[4], tm = x[5], tp = x[6], e = x[7];
    const T u1 = (p - pm) - (pp - hm);
    const T w1 = (e + tp) - (tm + hp);
    const T u2 = (p - hm) + (tm + tp);
    const T w2 = (e + hp) - (pp - pm);
    const T u3 = (p - hm) - (tm + tp);
    const T w3 = (pp - pm) + (e + hp);
    x[0] = (p + pm) + (pp + hm);
    x[1] = (tm - hp) - (tp - e);
    x[2] = w[2] * u1 + w[3] * w1;
    x[3] = w[2] * w1 - w[3] * u1;
    x[4] = w[1] * w2 + w[0] * u2;
    x[5] = w[0] * w2 - w[1] * u2;
    x[6] = w[5] * w3 + w[4] * u3;
    x[7] = w[4] * w3 - w[5] * u3;
}

template <class T>
inline void inverse_middle(T &x0, T &x1, T &x2, T &x3, T r) {
    const T a0 = x0, a1 = x1, a2 = x2, a3 = x3;
    const T sum01 = a0 + a1;
    const T diff32 = a3 - a2;
    const T plus = (a2 + a3) + (a0 - a1);
    const T minus = (a2 + a3) - (a0 - a1);
    x0 = sum01 + sum01;
    x1 = diff32 + diff32;
    x2 = (plus + plus) * r;
    x3 = (minus + minus) * r;
}

// A general butterfly (forward_k<float> or inverse_k<float>) in place on
// the block at x.
template <void (*Butterfly)(float *, const float *)>
inline void butterfly_k_in_place(float *x, int q, int k, const float *w) {
    float *at[8] = {x + k, x + q - k, x + q + k, x + 2 * q - k, x + 2 * q + k, x + 3 * q - k, x + 3 * q + k, x + 4 * q - k};
    float e[8];
    for (int i = 0; i < 8; ++i) e[i] = *at[i];
    Butterfly(e, w);
    for (int i = 0; i < 8; ++i) *at[i] = e[i];
}

}  // namespace
